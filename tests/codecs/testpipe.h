#pragma once
// A pipe whose read end is a stream as the worker's error stream is one,
// and whose write end the test holds: a non-blocking descriptor on Linux, an
// overlapped named pipe with its event on Windows.

#include <cstddef>
#include <cstdint>
#include <string>

#include "transport/pipestream.h"

class TestPipe {
public:
    TestPipe();
    TestPipe(const TestPipe&) = delete;
    TestPipe& operator=(const TestPipe&) = delete;
    ~TestPipe();
    // All of `text`, waiting while the pipe is full; false when it failed.
    bool Write(const std::string& text);
    void CloseWriter();
    // How many bytes wait in the pipe now.
    size_t Available() const;

    Qel::streamInOverlapped stream;

private:
    intptr_t reader_ = -1;
    intptr_t writer_ = -1;
};
