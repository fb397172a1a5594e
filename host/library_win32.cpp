#include "host/library.h"

#include <windows.h>

#include "host/text.h"

namespace host::library {

void* Load(const std::string& utf8Path, std::string& error) {
    const std::u16string wide = Utf8ToUtf16(utf8Path);
    const HMODULE library = ::LoadLibraryW(reinterpret_cast<const wchar_t*>(wide.c_str()));
    if (library == nullptr) error = utf8Path + " (Windows error " + std::to_string(::GetLastError()) + ")";
    return reinterpret_cast<void*>(library);
}

void* Symbol(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

void Unload(void* library) {
    if (library != nullptr) ::FreeLibrary(static_cast<HMODULE>(library));
}

}  // namespace host::library
