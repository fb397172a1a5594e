// The portable part of the worker: the order of start, stop and kill, and
// the UTF-8 conversion used for the program path, command line and working
// directory. The system calls are in worker_posix.cpp and worker_win32.cpp.

#include <cstdint>
#include <filesystem>
#include <string>

#include "transport/exceptions.h"
#include "transport/worker.h"

namespace {

// Decodes one character at `position`; false ends the text (a NUL, the end
// of the bytes, or anything that isn't well-formed).
bool NextUnit(const uint8_t* bytes, size_t length, size_t& position, char16_t& unit) {
    if (position >= length) return false;
    const uint8_t lead = bytes[position];
    if (lead == 0) return false;
    if (lead < 0x80) {
        unit = lead;
        ++position;
        return true;
    }
    int size = 0;
    if ((lead & 0xE0) == 0xC0) size = 2;
    else if ((lead & 0xF0) == 0xE0) size = 3;
    else if ((lead & 0xF8) == 0xF0) size = 4;
    else if ((lead & 0xFC) == 0xF8) size = 5;
    else if ((lead & 0xFE) == 0xFC) size = 6;
    if (size == 0 || lead == 0xC0 || lead == 0xC1) return false;
    if (static_cast<size_t>(size) > length - position) return false;

    uint32_t value = lead & (0x7Fu >> size);
    for (int i = 1; i < size; ++i) {
        const uint8_t next = bytes[position + static_cast<size_t>(i)];
        if ((next & 0xC0) != 0x80) return false;
        value = (value << 6) | (next & 0x3Fu);
    }
    static constexpr uint32_t kSmallest[7] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    if (value < kSmallest[size]) return false;
    // One unit per character: what lies above U+FFFF loses its upper bits.
    unit = static_cast<char16_t>(value & 0xFFFFu);
    position += static_cast<size_t>(size);
    return true;
}

}  // namespace

WorkerProcess::~WorkerProcess() { Stop(); }

void WorkerProcess::Start(const WorkerCommand& command) {
    Stop();
    command_ = command;
    try {
        // A relative path would be looked up from the working directory,
        // where anyone may have put a program of that name.
        const std::u8string exe(command.exe.begin(), command.exe.end());
        if (!std::filesystem::path(exe).is_absolute()) throw Qel::file_not_found();
        Launch();
    } catch (...) {
        Stop();
        command_ = WorkerCommand{};
        throw;
    }
}

void WorkerProcess::Stop() {
    // Closed pipes tell a worker that still writes to end: its next write fails.
    ClosePipes();
    if (process_ != 0 && !WaitForExit(kGraceMs)) Kill();
    Reap();
}

void WorkerProcess::Terminate() {
    ClosePipes();
    Kill();
    Reap();
}

bool WorkerProcess::Running() const { return process_ != 0; }

std::u16string FromUtf8Units(const char* bytes, size_t length) {
    std::u16string result;
    if (!bytes) return result;
    const auto* data = reinterpret_cast<const uint8_t*>(bytes);
    // A character takes at least one byte, so one pass fits without regrowth.
    result.reserve(length);
    char16_t unit = 0;
    for (size_t position = 0; NextUnit(data, length, position, unit);) result.push_back(unit);
    return result;
}

clString FromUtf8(const char* bytes, size_t length) {
    return clString(std::u16string_view(FromUtf8Units(bytes, length)));
}
