// The quit event of the Linux build is a FIFO: one byte in it means set.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "plugindriver.h"

namespace it {

QuitFifo::QuitFifo(const std::string& path) : path_(path) {
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    fd_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

QuitFifo::~QuitFifo() { ::close(fd_); }

void QuitFifo::Set() { EXPECT_EQ(::write(fd_, "q", 1), 1); }

void QuitFifo::Reset() {
    for (char byte; ::read(fd_, &byte, 1) == 1;) {
    }
}

}  // namespace it
