#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <stdexcept>

#include "testpipe.h"

TestPipe::TestPipe() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    reader_ = fds[0];
    writer_ = fds[1];
    ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
    stream.handle = reader_;
}

TestPipe::~TestPipe() {
    CloseWriter();
    ::close(static_cast<int>(reader_));
}

bool TestPipe::Write(const std::string& text) {
    return ::write(static_cast<int>(writer_), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void TestPipe::CloseWriter() {
    if (writer_ >= 0) ::close(static_cast<int>(writer_));
    writer_ = -1;
}

size_t TestPipe::Available() const {
    int count = 0;
    return ::ioctl(static_cast<int>(reader_), FIONREAD, &count) == 0 && count > 0 ? static_cast<size_t>(count) : 0;
}
