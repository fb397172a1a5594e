#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "testpipe.h"

namespace {

HANDLE Win(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

std::wstring UniqueName() {
    static std::atomic<int> serial{0};
    return L"\\\\.\\pipe\\fd-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(serial++) +
           L"-" + std::to_wstring(::GetTickCount64());
}

}  // namespace

TestPipe::TestPipe() {
    const std::wstring name = UniqueName();
    const HANDLE reader = ::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                                             PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr);
    if (reader == INVALID_HANDLE_VALUE) throw std::runtime_error("CreateNamedPipeW");
    const HANDLE writer = ::CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (writer == INVALID_HANDLE_VALUE) {
        ::CloseHandle(reader);
        throw std::runtime_error("CreateFileW on the pipe");
    }
    reader_ = reinterpret_cast<intptr_t>(reader);
    writer_ = reinterpret_cast<intptr_t>(writer);
    stream.handle = reader_;
    stream.event = reinterpret_cast<Qel::EventHandle>(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

TestPipe::~TestPipe() {
    CloseWriter();
    ::CloseHandle(Win(reader_));
    ::CloseHandle(reinterpret_cast<HANDLE>(stream.event));
}

bool TestPipe::Write(const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        DWORD written = 0;
        if (!::WriteFile(Win(writer_), text.data() + done, static_cast<DWORD>(text.size() - done), &written, nullptr))
            return false;
        done += written;
    }
    return true;
}

void TestPipe::CloseWriter() {
    if (writer_ != -1) ::CloseHandle(Win(writer_));
    writer_ = -1;
}

size_t TestPipe::Available() const {
    DWORD count = 0;
    return ::PeekNamedPipe(Win(reader_), nullptr, 0, nullptr, &count, nullptr) ? count : 0;
}
