#include "support/platform.h"

#include <windows.h>

namespace platform {

char16_t PathSeparator() { return u'\\'; }

int LastError() { return static_cast<int>(::GetLastError()); }

void SetLastError(int error) { ::SetLastError(static_cast<DWORD>(error)); }

const char16_t* LastErrorFormat() { return u"(Win:%u)"; }

const char16_t* OpenErrorFormat() { return u"(win:%i)"; }

}  // namespace platform
