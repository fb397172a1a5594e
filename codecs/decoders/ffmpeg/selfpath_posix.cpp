// The library's own path: dladdr on a function inside it, taken once while
// the library loads.

#include <dlfcn.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "codecs/decoders/ffmpeg/selfpath.h"

namespace {

// The loader keeps the name that was given to dlopen, which may be relative
// or hold "." steps; it is made absolute and plain while the working
// directory still is the one it was meant against. Symbolic links stay as
// they are: the worker lies beside the plug-in as the host sees it.
std::string ResolveOwnPath() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&OwnLibraryPath), &info) == 0) return {};
    if (info.dli_fname == nullptr || info.dli_fname[0] == 0) return {};
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(info.dli_fname, error);
    if (error) return info.dli_fname;
    return absolute.lexically_normal().string();
}

// Set at load time, never changed afterwards.
const std::string kOwnPath = ResolveOwnPath();

}  // namespace

std::string OwnLibraryPath() { return kOwnPath; }

const char* WorkerFileName() { return "ffmpeg-lgpl"; }

char FolderSeparator() { return '/'; }
