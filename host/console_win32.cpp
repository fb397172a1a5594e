#include "host/console.h"

// windows.h first: shellapi.h needs its types.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>

#include "host/text.h"

namespace host::console {

// The narrow argv of the runtime is in the ANSI code page and loses what it
// can't show, so the wide command line is split again and converted.
std::vector<std::string> Arguments(int /*argc*/, char** /*argv*/) {
    std::vector<std::string> all;
    int count = 0;
    wchar_t** wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide == nullptr) return all;
    for (int i = 1; i < count; ++i) {
        all.push_back(Utf16ToUtf8(reinterpret_cast<const char16_t*>(wide[i])));
    }
    ::LocalFree(wide);
    return all;
}

void PrepareStandardStreams() {
    ::_setmode(::_fileno(stdout), _O_BINARY);
    ::_setmode(::_fileno(stderr), _O_BINARY);
    ::SetConsoleOutputCP(CP_UTF8);
}

bool StandardOutputIsTerminal() { return ::_isatty(::_fileno(stdout)) != 0; }

bool StandardErrorIsTerminal() { return ::_isatty(::_fileno(stderr)) != 0; }

void IgnoreBrokenPipe() {}

}  // namespace host::console
