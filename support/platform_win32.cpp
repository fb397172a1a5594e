#include "support/platform.h"

#include <windows.h>

#include <string>

namespace platform {

char16_t PathSeparator() { return u'\\'; }

int LastError() { return static_cast<int>(::GetLastError()); }

void SetLastError(int error) { ::SetLastError(static_cast<DWORD>(error)); }

std::u16string ErrorText(int error) {
    wchar_t buffer[512] = {};
    DWORD length = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                    static_cast<DWORD>(error), 0, buffer, 512, nullptr);
    // The system's text ends with a full stop and a line end.
    while (length > 0 && (buffer[length - 1] == L'\r' || buffer[length - 1] == L'\n' || buffer[length - 1] == L'.')) {
        --length;
    }
    if (length == 0) {
        const std::string number = "Windows error " + std::to_string(error);
        return std::u16string(number.begin(), number.end());
    }
    return std::u16string(reinterpret_cast<const char16_t*>(buffer), length);
}

}  // namespace platform
