#pragma once
// Platform facts the support library's logic needs: the path separator and
// the last system error with the form in which error texts show it.

namespace platform {

char16_t PathSeparator();
// errno on Linux, GetLastError on Windows; 0 when none.
int LastError();
void SetLastError(int error);
// The printf-style form of LastError() inside clString::LastErrorText and
// clFile::OpenErrorText; each takes one int.
const char16_t* LastErrorFormat();
const char16_t* OpenErrorFormat();

}  // namespace platform
