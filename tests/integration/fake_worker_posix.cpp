// The worker stand-in on Linux, and its commands for the transport tests,
// run in order:
//   pid            print the process id and a newline to stdout
//   pattern N      write N bytes of PatternByte(i) to stdout
//   lines N        print "line <i>" N times to stderr
//   args           print each argument, each ended by a NUL, to stdout
//   fds            print the open descriptors, one per line, to stdout
//   stdin          read stdin until its end
//   ignore-term    ignore SIGTERM
//   ignore-pipe    ignore SIGPIPE, so a closed stdout doesn't end it
//   sleep MS       sleep
//   trace PID      attach to PID as its tracer and print "traced" or
//                  "untraced"; a traced child that ends stays unreapable
//                  for its parent until this process ends

#include <dirent.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "tests/integration/fake_worker.h"
#include "tests/transport/pattern.h"

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
    else if (command == "lines") {
        for (unsigned long long n = 0; n < value; ++n) Offer(2, "line " + std::to_string(n) + "\n");
    } else if (command == "pattern") {
        std::string chunk;
        for (unsigned long long done = 0; done < value; done += chunk.size()) {
            chunk.resize(static_cast<size_t>(std::min<unsigned long long>(65536, value - done)));
            for (size_t k = 0; k < chunk.size(); ++k) chunk[k] = static_cast<char>(PatternByte(done + k));
            Offer(1, chunk);
        }
    } else if (command == "args") {
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

void PrepareOutputs() { ::signal(SIGPIPE, SIG_IGN); }

int RunCommands(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string command = argv[i];
        const bool takesValue = command == "trace" || command == "sleep" || command == "lines" || command == "pattern";
        Command(command, takesValue && i + 1 < argc ? std::strtoull(argv[i + 1], nullptr, 10) : 0, argc, argv);
        if (takesValue) ++i;
    }
    return 0;
}
