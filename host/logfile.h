#pragma once
// Seam: a log file opened for the plug-in. fdhost starts each log afresh per
// run (truncate) and opens it for appending, so that every piece the plug-in
// writes lands at the end even when both logs name the same file. The sink
// word is a descriptor on Linux and a HANDLE on Windows. A temporary log,
// which fdhost reads back to relay the plug-in's errors, has no name that
// outlives the run.

#include <cstdint>
#include <string>

namespace host {

class LogFile {
public:
    LogFile() = default;
    // Throws HostError when the file cannot be created.
    explicit LogFile(const std::string& path);
    // A log of fdhost's own, readable, gone when closed; throws HostError.
    static LogFile Temporary();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    LogFile(LogFile&& other) noexcept;
    LogFile& operator=(LogFile&& other) noexcept;
    ~LogFile();

    // The sink word for DecoderCreateInfo, or 0 for none.
    uint64_t Sink() const;
    // The bytes from `offset` to the end; only for a temporary log.
    std::string ReadFrom(uint64_t offset) const;

private:
    void Reset();   // closes the file; the platform's part

    intptr_t handle_ = -1;
};

// fdhost's own executable, UTF-8; empty when the system can't tell.
std::string ExecutablePath();
// The plug-in's file name on this system.
const char* PluginFileName();

}  // namespace host
