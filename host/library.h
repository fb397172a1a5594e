#pragma once
// Seam: loading a library at run time and finding its functions by name
// (dlopen on Linux, LoadLibraryW on Windows).

#include <string>

namespace host::library {

// Every symbol bound at once; null with `error` set on failure.
void* Load(const std::string& utf8Path, std::string& error);
void* Symbol(void* library, const char* name);
void Unload(void* library);

}  // namespace host::library
