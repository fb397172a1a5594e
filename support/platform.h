#pragma once
// Platform facts the support library's logic needs: the path separator and
// the last system error with the form in which error texts show it.

#include <string>

namespace platform {

char16_t PathSeparator();
// errno on Linux, GetLastError on Windows; 0 when none.
int LastError();
void SetLastError(int error);
// A system error number as the system's own words ("No such file or
// directory"), which a user can act on where a bare number means nothing;
// the number itself when the system has no text for it.
std::u16string ErrorText(int error);

}  // namespace platform
