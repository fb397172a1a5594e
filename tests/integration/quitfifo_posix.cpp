#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <stdexcept>
#include "quitfifo.h"

namespace it {

QuitFifo::QuitFifo(const std::string& path) : path_(path) {
    if (::mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("no FIFO at " + path);
    fd_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) throw std::runtime_error("cannot open the FIFO " + path);
}
QuitFifo::~QuitFifo() { ::close(fd_); }
void QuitFifo::Set() { if (::write(fd_, "q", 1) != 1) throw std::runtime_error("cannot set the quit FIFO " + path_); }
bool QuitFifo::IsSet() const {
    pollfd entry{fd_, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}
void QuitFifo::Reset() { for (char byte; ::read(fd_, &byte, 1) == 1;) {} }

}  // namespace it
