// The host's side of a quit event on Windows: a named manual-reset event, named for the path with its separators and
// colon as "_". Kernel handles fit in 32 bits, so the descriptor's field holds it.

#include <windows.h>
#include <algorithm>
#include <stdexcept>
#include "quitfifo.h"

namespace it {

static HANDLE Event(int fd) { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd)); }
QuitFifo::QuitFifo(const std::string& path) : path_(path) {
    std::replace_if(path_.begin(), path_.end(), [](char c) { return c == '\\' || c == '/' || c == ':'; }, '_');
    const HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, path_.c_str());
    if (event == nullptr) throw std::runtime_error("no event named " + path_);
    fd_ = static_cast<int>(reinterpret_cast<intptr_t>(event));
}
QuitFifo::~QuitFifo() { ::CloseHandle(Event(fd_)); }
void QuitFifo::Set() { ::SetEvent(Event(fd_)); }
bool QuitFifo::IsSet() const { return ::WaitForSingleObject(Event(fd_), 0) == WAIT_OBJECT_0; }
void QuitFifo::Reset() { ::ResetEvent(Event(fd_)); }

}  // namespace it
