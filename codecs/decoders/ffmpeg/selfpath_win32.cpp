// The library's own path: GetModuleFileNameW on the module that holds this
// code, taken once, when the library loads.

#include <windows.h>

#include <string>

#include "codecs/decoders/ffmpeg/selfpath.h"
#include "support/textcodec.h"

namespace {

constexpr DWORD kMaxPathUnits = 1000;

std::string QueryOwnLibraryPath() {
    HMODULE self = nullptr;
    if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              reinterpret_cast<LPCWSTR>(&QueryOwnLibraryPath), &self)) {
        return {};
    }
    wchar_t path[kMaxPathUnits + 1] = {};
    const DWORD length = ::GetModuleFileNameW(self, path, kMaxPathUnits);
    if (length == 0) return {};
    return text::Utf16ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(path), length));
}

// Set at load time, never changed afterwards.
const std::string kOwnPath = QueryOwnLibraryPath();

}  // namespace

std::string OwnLibraryPath() { return kOwnPath; }

const char* WorkerFileName() { return "ffmpeg-lgpl.exe"; }

char FolderSeparator() { return '\\'; }
