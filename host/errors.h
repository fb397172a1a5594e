#pragma once
// The two ways a command fails: a wrong command line (exit 2) and a failure
// of the plug-in or the system (exit 1).

#include <stdexcept>
#include <string>

namespace host {

enum ExitCode : int {
    kExitOk = 0,
    kExitFailed = 1,
    kExitUsage = 2,
};

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class HostError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace host
