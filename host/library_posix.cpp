#include "host/library.h"

#include <dlfcn.h>

namespace host::library {

void* Load(const std::string& utf8Path, std::string& error) {
    void* library = dlopen(utf8Path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        error = reason ? reason : utf8Path;
    }
    return library;
}

void* Symbol(void* library, const char* name) {
    dlerror();
    return dlsym(library, name);
}

void Unload(void* library) {
    if (library != nullptr) dlclose(library);
}

}  // namespace host::library
