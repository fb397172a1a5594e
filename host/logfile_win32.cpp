#include "host/logfile.h"

#include <windows.h>

#include "host/errors.h"
#include "host/text.h"

namespace host {

// Append-only access makes every write land at the end; not inheritable, so
// no worker holds the log.
LogFile::LogFile(const std::string& path) {
    const std::u16string wide = Utf8ToUtf16(path);
    const HANDLE handle = ::CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), FILE_APPEND_DATA | SYNCHRONIZE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        throw HostError("cannot open the log file " + path + ": Windows error " + std::to_string(::GetLastError()));
    }
    handle_ = reinterpret_cast<intptr_t>(handle);
}

// Append-only and readable; the system deletes the file when the handle closes.
LogFile LogFile::Temporary() {
    wchar_t folder[MAX_PATH + 1] = {};
    wchar_t name[MAX_PATH + 1] = {};
    if (::GetTempPathW(MAX_PATH + 1, folder) == 0 || ::GetTempFileNameW(folder, L"fdh", 0, name) == 0) {
        throw HostError("cannot make a temporary log: Windows error " + std::to_string(::GetLastError()));
    }
    const HANDLE handle = ::CreateFileW(name, GENERIC_READ | FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        ::DeleteFileW(name);
        throw HostError("cannot make a temporary log: Windows error " + std::to_string(error));
    }
    LogFile log;
    log.handle_ = reinterpret_cast<intptr_t>(handle);
    return log;
}

std::string LogFile::ReadFrom(uint64_t offset) const {
    std::string bytes;
    char buffer[65536];
    for (;;) {
        OVERLAPPED at{};
        at.Offset = static_cast<DWORD>(offset);
        at.OffsetHigh = static_cast<DWORD>(offset >> 32);
        DWORD got = 0;
        if (!::ReadFile(reinterpret_cast<HANDLE>(handle_), buffer, sizeof buffer, &got, &at) || got == 0) return bytes;
        bytes.append(buffer, got);
        offset += got;
    }
}

void LogFile::Reset() {
    if (handle_ != -1) ::CloseHandle(reinterpret_cast<HANDLE>(handle_));
    handle_ = -1;
}

uint64_t LogFile::Sink() const { return handle_ == -1 ? 0 : static_cast<uint64_t>(handle_); }

std::string ExecutablePath() {
    wchar_t path[32768] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, 32767);
    if (length == 0) return {};
    return Utf16ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(path), length));
}

const char* PluginFileName() { return "ffmpeg_decoder.dll"; }

}  // namespace host
