#pragma once
// What the tag benchmarks share: this process's I/O counters and stand-in
// picture bytes.

#include <cstdint>
#include <fstream>
#include <string>

namespace benchio {

// One counter of /proc/self/io ("rchar", "wchar"), or -1.
inline int64_t IoCounter(const std::string& name) {
    std::ifstream io("/proc/self/io");
    std::string key;
    int64_t value = 0;
    while (io >> key >> value) {
        if (key == name + ":") return value;
    }
    return -1;
}

// `size` bytes of noise that begin with `head`, as a picture file would.
inline std::string CoverBytes(uint32_t size, const std::string& head) {
    std::string cover(size, '\0');
    uint32_t x = 12345;
    for (char& c : cover) {
        x = x * 1103515245u + 12345u;
        c = static_cast<char>(x >> 24);
    }
    cover.replace(0, head.size(), head);
    return cover;
}

}  // namespace benchio
