#pragma once
// The log seam: a sink is the word the host handed over for a log file
// (a file descriptor on Linux, a HANDLE on Windows). 0 or all ones is none.

#include <cstddef>
#include <cstdint>

namespace logsink {

bool IsNone(uint64_t sink);
// Writes the bytes in one system call where the system allows; a failure is
// ignored, because logging never fails.
void Write(uint64_t sink, const void* bytes, size_t count);

}  // namespace logsink
