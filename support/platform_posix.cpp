#include "support/platform.h"

#include <cerrno>

namespace platform {

char16_t PathSeparator() { return u'/'; }

int LastError() { return errno; }

void SetLastError(int error) { errno = error; }

const char16_t* LastErrorFormat() { return u"(errno:%d)"; }

// The Windows build shows its last error here; errno is Linux's counterpart.
const char16_t* OpenErrorFormat() { return u"(errno:%i)"; }

}  // namespace platform
