#include "host/outputfile.h"

#include <windows.h>

#include <filesystem>
#include <system_error>

#include "host/errors.h"
#include "host/text.h"

namespace host {
namespace {

HANDLE Win(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

std::string LastErrorText() { return "Windows error " + std::to_string(::GetLastError()); }

bool IsSeekable(HANDLE handle) { return ::GetFileType(handle) == FILE_TYPE_DISK; }

}  // namespace

OutputFile::OutputFile(const std::string& path, bool overwrite) : path_(path) {
    if (path == "-") {
        handle_ = reinterpret_cast<intptr_t>(::GetStdHandle(STD_OUTPUT_HANDLE));
        path_ = "standard output";
    } else {
        const std::u16string wide = Utf8ToUtf16(path);
        const HANDLE created = ::CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), GENERIC_WRITE,
                                             FILE_SHARE_READ, nullptr, overwrite ? CREATE_ALWAYS : CREATE_NEW,
                                             FILE_ATTRIBUTE_NORMAL, nullptr);
        if (created == INVALID_HANDLE_VALUE) throw HostError("cannot create " + path + ": " + LastErrorText());
        handle_ = reinterpret_cast<intptr_t>(created);
        owned_ = true;
        filePath_ = path;
    }
    seekable_ = IsSeekable(Win(handle_));
}

OutputFile::~OutputFile() {
    if (owned_ && handle_ != -1) ::CloseHandle(Win(handle_));
    std::error_code error;
    // Only a regular file: never a device such as /dev/null.
    if (owned_ && !kept_ && seekable_) std::filesystem::remove(Utf8Path(filePath_), error);
}

void OutputFile::Write(const void* bytes, size_t size) {
    const auto* at = static_cast<const char*>(bytes);
    while (size > 0) {
        const DWORD piece = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD written = 0;
        if (!::WriteFile(Win(handle_), at, piece, &written, nullptr) || written == 0) {
            throw HostError("cannot write " + path_ + ": " + LastErrorText());
        }
        at += written;
        size -= written;
    }
}

void OutputFile::WriteAt(uint64_t offset, const void* bytes, size_t size) {
    LARGE_INTEGER target{};
    target.QuadPart = static_cast<LONGLONG>(offset);
    LARGE_INTEGER previous{};
    const LARGE_INTEGER zero{};
    if (!::SetFilePointerEx(Win(handle_), zero, &previous, FILE_CURRENT) ||
        !::SetFilePointerEx(Win(handle_), target, nullptr, FILE_BEGIN)) {
        throw HostError("cannot write " + path_ + ": " + LastErrorText());
    }
    Write(bytes, size);
    ::SetFilePointerEx(Win(handle_), previous, nullptr, FILE_BEGIN);
}

void OutputFile::Close() {
    if (!owned_ || handle_ == -1) return;
    const HANDLE handle = Win(handle_);
    handle_ = -1;
    if (!::CloseHandle(handle)) throw HostError("cannot write " + path_ + ": " + LastErrorText());
    kept_ = true;
}

}  // namespace host
