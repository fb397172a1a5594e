#include "support/filehandle.h"

#include <windows.h>

namespace filehandle {
namespace {

HANDLE Win(clFileHandle handle) { return reinterpret_cast<HANDLE>(handle); }

constexpr size_t kLongPathUnits = 260;

}  // namespace

// No security attributes: the handle is not inherited by a worker.
clFileHandle Open(const clString& path, uint32_t access, uint32_t shareMode) {
    const clString target = LongPath(path);
    if (target.Length() == 0) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return kNoFileHandle;
    }
    const HANDLE handle = ::CreateFileW(reinterpret_cast<const wchar_t*>(target.Text()), access, shareMode, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return kNoFileHandle;
    return reinterpret_cast<clFileHandle>(handle);
}

void Close(clFileHandle handle) {
    if (handle == kNoFileHandle) return;
    const DWORD savedError = ::GetLastError();
    ::CloseHandle(Win(handle));
    ::SetLastError(savedError);
}

bool Read(clFileHandle handle, void* buffer, uint32_t count, uint32_t& done) {
    done = 0;
    auto* next = static_cast<char*>(buffer);
    ::SetLastError(0);
    while (done < count) {
        DWORD got = 0;
        if (!::ReadFile(Win(handle), next + done, count - done, &got, nullptr)) {
            return ::GetLastError() == ERROR_HANDLE_EOF;
        }
        if (got == 0) break;
        done += got;
    }
    return true;
}

bool Write(clFileHandle handle, const void* buffer, uint32_t count, uint32_t& done) {
    done = 0;
    const auto* next = static_cast<const char*>(buffer);
    while (done < count) {
        DWORD put = 0;
        if (!::WriteFile(Win(handle), next + done, count - done, &put, nullptr)) return false;
        if (put == 0) {
            ::SetLastError(ERROR_DISK_FULL);
            return false;
        }
        done += put;
    }
    return true;
}

bool Seek(clFileHandle handle, int64_t offset, int origin, int64_t& position) {
    DWORD method = FILE_BEGIN;
    if (origin == clFile::kFromEnd) method = FILE_END;
    if (origin == clFile::kFromCurrent) method = FILE_CURRENT;
    LONG high = static_cast<LONG>(offset >> 32);
    ::SetLastError(0);
    const DWORD low = ::SetFilePointer(Win(handle), static_cast<LONG>(offset & 0xFFFFFFFF), &high, method);
    if (low == INVALID_SET_FILE_POINTER && ::GetLastError() != NO_ERROR) return false;
    position = (static_cast<int64_t>(high) << 32) | low;
    return true;
}

bool Size(clFileHandle handle, int64_t& size) {
    DWORD high = 0;
    ::SetLastError(0);
    const DWORD low = ::GetFileSize(Win(handle), &high);
    if (low == INVALID_FILE_SIZE && ::GetLastError() != NO_ERROR) return false;
    size = (static_cast<int64_t>(high) << 32) | low;
    return true;
}

bool SetEndOfFile(clFileHandle handle) { return ::SetEndOfFile(Win(handle)) != 0; }

// Paths at the old length limit go through the long-path prefix, unless they
// are UNC or already prefixed (two backslashes).
clString LongPath(const clString& path) {
    const std::u16string_view units(path.Text(), path.Length());
    if (units.size() < kLongPathUnits || units.starts_with(u"\\\\")) return path;
    clString prefixed(u"\\\\?\\");
    prefixed.Append(path.Text());
    return prefixed;
}

}  // namespace filehandle
