// The library's own path: dladdr on a function inside it.

#include <dlfcn.h>
#include <unistd.h>

#include <string>

#include "codecs/decoders/ffmpeg/selfpath.h"

namespace {

// The loader reports the name that was given to dlopen; a relative one is
// made absolute now, while the working directory still is the one it meant.
std::string Absolute(std::string path) {
    if (path.empty() || path.front() == '/') return path;
    char cwd[4096];
    if (::getcwd(cwd, sizeof cwd) == nullptr) return path;
    std::string result(cwd);
    if (result.back() != '/') result += '/';
    if (path.rfind("./", 0) == 0) path.erase(0, 2);
    return result + path;
}

}  // namespace

std::string OwnLibraryPath() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&OwnLibraryPath), &info) == 0) return {};
    if (info.dli_fname == nullptr) return {};
    return Absolute(info.dli_fname);
}

const char* WorkerFileName() { return "ffmpeg-lgpl"; }

char FolderSeparator() { return '/'; }
