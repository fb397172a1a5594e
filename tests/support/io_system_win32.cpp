#include <windows.h>

#include "io_system.h"
#include "support/platform.h"

bool Inheritable(intptr_t handle) {
    DWORD flags = 0;
    return ::GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) && (flags & HANDLE_FLAG_INHERIT) != 0;
}

std::u16string FileNotFoundErrorCode() {
    platform::SetLastError(ERROR_FILE_NOT_FOUND);
    return u"(" + platform::ErrorText(ERROR_FILE_NOT_FOUND) + u")";
}
