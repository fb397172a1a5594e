// A small worker for the transport tests. It runs its arguments as a list of
// commands, in order:
//   pid            print the process id and a newline to stdout
//   pattern N      write N bytes of PatternByte(i) to stdout
//   lines N        print "line <i>" N times to stderr
//   args           print each argument, hex-encoded, one per line, to stdout
//   fds            print the open descriptors, one per line, to stdout
//   stdin          copy stdin to stdout until its end
//   ignore-term    ignore SIGTERM
//   ignore-pipe    ignore SIGPIPE, so a closed stdout doesn't end it
//   sleep MS       sleep
//   exit           end at once

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "pattern.h"

namespace {

void WriteAll(int fd, const void* data, size_t size) {
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t written = ::write(fd, bytes, size);
        if (written <= 0) return;   // a closed pipe: keep going, as asked
        bytes += written;
        size -= static_cast<size_t>(written);
    }
}

void WriteText(int fd, const std::string& text) { WriteAll(fd, text.data(), text.size()); }

void WritePattern(unsigned long long count) {
    std::vector<unsigned char> chunk(65536);
    for (unsigned long long done = 0; done < count;) {
        size_t size = static_cast<size_t>(std::min<unsigned long long>(chunk.size(), count - done));
        for (size_t i = 0; i < size; ++i) chunk[i] = PatternByte(done + i);
        WriteAll(1, chunk.data(), size);
        done += size;
    }
}

void WriteArgs(int argc, char** argv) {
    static const char digits[] = "0123456789abcdef";
    for (int i = 0; i < argc; ++i) {
        std::string hex;
        for (const char* p = argv[i]; *p; ++p) {
            hex += digits[static_cast<unsigned char>(*p) >> 4];
            hex += digits[static_cast<unsigned char>(*p) & 15];
        }
        WriteText(1, hex + "\n");
    }
}

void WriteFds() {
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir) return;
    const int own = ::dirfd(dir);
    while (dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == own) continue;
        WriteText(1, std::string(entry->d_name) + "\n");
    }
    ::closedir(dir);
}

void CopyStdin() {
    char buffer[4096];
    for (;;) {
        ssize_t got = ::read(0, buffer, sizeof buffer);
        if (got <= 0) return;
        WriteAll(1, buffer, static_cast<size_t>(got));
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string command = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : "0";
        if (command == "pid") WriteText(1, std::to_string(::getpid()) + "\n");
        else if (command == "args") WriteArgs(argc, argv);
        else if (command == "fds") WriteFds();
        else if (command == "stdin") CopyStdin();
        else if (command == "ignore-term") ::signal(SIGTERM, SIG_IGN);
        else if (command == "ignore-pipe") ::signal(SIGPIPE, SIG_IGN);
        else if (command == "exit") return 0;
        else if (command == "pattern") WritePattern(std::strtoull(value, nullptr, 10)), ++i;
        else if (command == "sleep") std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(value))), ++i;
        else if (command == "lines") {
            for (int n = 0; n < std::atoi(value); ++n) WriteText(2, "line " + std::to_string(n) + "\n");
            ++i;
        }
    }
    return 0;
}
