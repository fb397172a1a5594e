#include <fcntl.h>

#include <cerrno>

#include "io_system.h"
#include "support/platform.h"

bool Inheritable(intptr_t handle) { return (::fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC) == 0; }

std::u16string FileNotFoundErrorCode() {
    platform::SetLastError(ENOENT);
    return u"(No such file or directory)";
}
