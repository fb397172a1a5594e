#pragma once
// One file handle with 64-bit positions, reads that tell failure from end of
// file, and ShiftTail, the move of a file's tail that in-place retagging rests
// on. It never raises; results and the `failed` flag tell.

#include <cstdint>

#include "support/clString.h"

using clFileHandle = intptr_t;               // fd on Linux, HANDLE on Windows
constexpr clFileHandle kNoFileHandle = -1;

class clFile {
public:
    static constexpr uint32_t kRead = 0x80000000u;
    static constexpr uint32_t kWrite = 0x40000000u;
    static constexpr uint32_t kReadWrite = kRead | kWrite;

    enum Where : int { kAtStart = 0, kAtEnd = 1, kAtCurrent = 2 };   // Write
    enum Origin : int { kFromStart = 0, kFromEnd = 1, kFromCurrent = 2 };  // Seek

    clFile() = default;
    explicit clFile(const clString& path);
    // A view on another file's open handle that never closes it.
    static clFile Borrow(const clFile& owner);
    clFile(const clFile&) = delete;
    clFile& operator=(const clFile&) = delete;
    clFile(clFile&& other) noexcept;
    clFile& operator=(clFile&& other) noexcept;
    ~clFile();

    // Existing files only. `access` is kRead, kWrite or both.
    bool Open(uint32_t access);
    bool IsOpen() const { return handle != kNoFileHandle; }
    void Close();

    // Reads, writes and seeks use the handle's own position, which borrowed
    // views share with their owner.
    // Bytes read; `failed` is set to true for a true error, never for end of
    // file, and is left alone otherwise.
    uint32_t Read(void* buffer, uint32_t count, bool* failed = nullptr);
    bool Write(const void* buffer, uint32_t count, int where = kAtCurrent);
    bool Seek(int64_t position, int origin = kFromStart);
    int64_t Tell() const;
    // -1 with `failed` set to true on failure.
    int64_t Size(bool* failed = nullptr) const;
    bool SetLength(int64_t length);
    // All or nothing: a failed move is undone, and `damaged`, when given, is
    // set to true when the undo failed too.
    bool ShiftTail(int64_t position, int64_t delta, bool* damaged = nullptr);

    static clString OpenErrorText(const clString& path);
    static clString LongPath(const clString& path);

    clString path;
    clFileHandle handle = kNoFileHandle;
    bool showMessages = false;
    bool ownsHandle = true;
    uint32_t shareMode = 3;
};
