#include "support/platform.h"

#include <cerrno>
#include <cstring>

#include "support/textcodec.h"

namespace platform {

char16_t PathSeparator() { return u'/'; }

int LastError() { return errno; }

void SetLastError(int error) { errno = error; }

namespace {

// strerror_r comes as the GNU or the XSI variant, by the library's choice.
[[maybe_unused]] const char* Chosen(const char* text, const char* /*buffer*/) { return text; }
[[maybe_unused]] const char* Chosen(int result, const char* buffer) { return result == 0 ? buffer : nullptr; }

}  // namespace

std::u16string ErrorText(int error) {
    char buffer[256] = {};
    const char* text = Chosen(::strerror_r(error, buffer, sizeof buffer), buffer);
    if (text == nullptr || *text == 0) return text::Utf8ToUtf16("errno " + std::to_string(error));
    return text::Utf8ToUtf16(text);
}

}  // namespace platform
