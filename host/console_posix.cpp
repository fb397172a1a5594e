#include "host/console.h"

#include <unistd.h>

#include <csignal>

namespace host::console {

std::vector<std::string> Arguments(int argc, char** argv) {
    std::vector<std::string> all;
    for (int i = 1; i < argc; ++i) all.emplace_back(argv[i]);
    return all;
}

void PrepareStandardStreams() {}

bool StandardOutputIsTerminal() { return ::isatty(STDOUT_FILENO) == 1; }

bool StandardErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

void IgnoreBrokenPipe() { std::signal(SIGPIPE, SIG_IGN); }

}  // namespace host::console
