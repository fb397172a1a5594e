#pragma once
// Byte streams over the parent's end of a pipe. A read piece (at most
// 16 MiB) takes what the pipe holds; only an empty pipe makes it wait, on the
// pipe and the thread's current aborter together, within the time limit: an
// abort raises user_abort, a time-out network_error_timeout, and neither
// leaves a transfer pending. The writer's end is a count of 0.

#include "transport/event.h"
#include "transport/streams.h"

namespace Qel {

using PipeHandle = intptr_t;          // fd on Linux, HANDLE on Windows
constexpr PipeHandle kNoPipe = -1;

struct _streamOverlappedBase {
    double timeoutSeconds = 0.0;      // per piece; 0 or less: none
    PipeHandle handle = kNoPipe;      // not owned: WorkerProcess opens and closes it
    EventHandle event = kNoEvent;     // not owned; may be none (Linux waits on the pipe itself)
};

class streamInOverlapped : public streamIn, public _streamOverlappedBase {
public:
    size_t read(void* buffer, size_t count) override;
    // One piece: what the pipe holds, waiting (abortable, within the time
    // limit) only while it holds nothing.
    size_t readSome(void* buffer, size_t count) override;
};

class streamOutOverlapped : public streamOut, public _streamOverlappedBase {
public:
    void write(const void* buffer, size_t count) override;
};

}  // namespace Qel
