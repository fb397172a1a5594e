// The worker stand-in's commands for the transport tests, run in order: "pid" prints its pid; "args" each argument
// NUL-ended; "fds" its open descriptors, one a line; "stdin" drains stdin; "ignore-term", "ignore-pipe"; "sleep MS";
// "trace PID" seizes PID and prints "traced" or "untraced" (a traced child that ends stays unreapable for its parent
// until this process ends).
#include <dirent.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <unistd.h>
#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include "tests/integration/fake_worker.h"

namespace {

// A write that goes on past a closed pipe, as the transport tests ask.
void Offer(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written <= 0) return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}
void Command(const std::string& command, unsigned long long value, int argc, char** argv) {
    if (command == "pid") Offer(1, std::to_string(::getpid()) + "\n");
    else if (command == "ignore-term") ::signal(SIGTERM, SIG_IGN);
    else if (command == "ignore-pipe") ::signal(SIGPIPE, SIG_IGN);
    else if (command == "trace")
        Offer(1, ::ptrace(PTRACE_SEIZE, static_cast<pid_t>(value), nullptr, nullptr) == 0 ? "traced\n" : "untraced\n");
    else if (command == "sleep") std::this_thread::sleep_for(std::chrono::milliseconds(value));
    else if (command == "args") {
        for (int a = 0; a < argc; ++a) Offer(1, std::string(argv[a]) + '\0');
    } else if (command == "fds") {
        DIR* dir = ::opendir("/proc/self/fd");
        while (dirent* entry = dir ? ::readdir(dir) : nullptr) {
            if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(dir)) Offer(1, std::string(entry->d_name) + "\n");
        }
        if (dir) ::closedir(dir);
    } else if (command == "stdin") {
        for (char buffer[4096]; ::read(0, buffer, sizeof buffer) > 0;) {}
    }
}

}  // namespace

// Linux streams pass bytes as they are.
void PrepareOutputs() {}
int RunCommands(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string command = argv[i];
        const bool takesValue = command == "trace" || command == "sleep";
        Command(command, takesValue && i + 1 < argc ? std::strtoull(argv[i + 1], nullptr, 10) : 0, argc, argv);
        if (takesValue) ++i;
    }
    return 0;
}
