#pragma once
// One worker child with its standard channels on pipes. It knows nothing of
// audio. Stop = close the pipes, wait up to 2000 ms, then kill; always reaped
// (a worker that even a kill doesn't end at once is reaped when it ends).

#include <cstdint>
#include <string>
#include <vector>

#include "support/clString.h"
#include "transport/pipestream.h"

struct WorkerCommand {
    std::string exe;                    // full path, UTF-8
    std::vector<std::string> args;      // argv, first the program's own name
    std::string rawCommandLine;         // replaces args on platforms with one command line
    std::string workingDirectory;       // empty: inherit
    uint32_t stdinMode = 0;             // 0 none, 1 inherit, 2 pipe
    uint32_t stdoutMode = 2;
    uint32_t stderrMode = 2;
    uint64_t reserved = 0;
};

class WorkerProcess {
public:
    WorkerProcess() = default;
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;
    ~WorkerProcess();

    // Stops what runs, then launches. Raises Qel::file_not_found ("file not
    // found") for a missing program or one not named by an absolute path,
    // std::runtime_error("could not start the worker process") or ("pipe
    // creation failure") otherwise.
    void Start(const WorkerCommand& command);
    void Stop();
    // Closes the pipes and kills at once, without the grace time (Destroy).
    void Terminate();
    bool Running() const;

    Qel::streamInOverlapped& Stdout() { return stdoutStream_; }
    Qel::streamInOverlapped& Stderr() { return stderrStream_; }
    Qel::streamOutOverlapped& Stdin() { return stdinStream_; }
    const WorkerCommand& Command() const { return command_; }

private:
    // How long Stop waits for a worker whose pipes are closed, and a killed
    // one for its end.
    static constexpr int64_t kGraceMs = 2000;

    // The platform's part (worker_posix.cpp, worker_win32.cpp).
    void Launch();       // creates the channels and starts the child
    void ClosePipes();   // the parent's ends and what belongs to them
    bool WaitForExit(int64_t limitMs);
    void Kill();
    void Reap();         // after the wait or the kill: nothing of the child is left open

    intptr_t process_ = 0;              // pid on Linux, HANDLE on Windows; 0 none
    intptr_t pidfd_ = -1;               // Linux: a descriptor to wait on, -1 when the kernel has none
    Qel::streamInOverlapped stdoutStream_;
    Qel::streamInOverlapped stderrStream_;
    Qel::streamOutOverlapped stdinStream_;
    WorkerCommand command_;
};

// UTF-8 to wide with the worker's rules: invalid input ends the text silently,
// characters above U+FFFF keep only their low 16 bits.
clString FromUtf8(const char* bytes, size_t length);
// The same conversion as plain UTF-16 units.
std::u16string FromUtf8Units(const char* bytes, size_t length);
