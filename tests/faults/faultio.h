#pragma once
// Faults at the system-call seam: a test linking faultio.cpp defines read,
// write and ftruncate itself, and they fail as planned while a Scope is active
// and the descriptor's /proc/self/fd link starts with the plan's target (a
// path, or "pipe:"). No logic file knows about this.

#include <cstdint>
#include <string>

namespace faults {

struct Plan {
    std::string target;                // the start of the descriptor's link text
    size_t maxChunk = 0;               // reads and writes move at most this many bytes (0: no limit)
    bool interrupt = false;            // every other call fails with EINTR first
    int64_t readFailAfter = -1;        // reads fail with EIO once this many bytes were read
    int64_t writeFailAfter = -1;       // writes fail with ENOSPC once this many bytes were written
    int64_t shrinkAfterReads = -1, shrinkTo = 0;   // after this many reads the file (target: a path) is cut to shrinkTo bytes
    // A read (write) that reaches this file offset stops short of it, and one
    // that starts there fails with EIO (ENOSPC): a fault at one place in the file.
    int64_t readFailsAt = -1, writeFailsAt = -1;
    bool once = false;                 // the offset faults strike once; later calls pass
};
// Makes `plan` (aimed at `target` when given) active for its lifetime; one at a time.
class Scope {
public:
    explicit Scope(const Plan& plan);
    Scope(const Plan& plan, const std::string& target);
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();
};
// The calls the active plan has changed so far (a test that injects nothing
// proves nothing), and the bytes its target has read and written.
int64_t Injected();
int64_t BytesRead();
int64_t BytesWritten();

}  // namespace faults
