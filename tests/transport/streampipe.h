#pragma once
// A pipe with a stream on each end, as the worker's channels are on the
// parent's side: non-blocking descriptors on Linux, overlapped named pipe
// handles with their events on Windows.

#include <cstddef>
#include <cstdint>

#include "transport/pipestream.h"

class StreamPipe {
public:
    StreamPipe();
    StreamPipe(const StreamPipe&) = delete;
    StreamPipe& operator=(const StreamPipe&) = delete;
    ~StreamPipe();
    void CloseWriteEnd();

    Qel::streamInOverlapped in;
    Qel::streamOutOverlapped out;
};
