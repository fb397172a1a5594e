#include "host/logfile.h"

#include <utility>

namespace host {

LogFile::LogFile(LogFile&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}

LogFile& LogFile::operator=(LogFile&& other) noexcept {
    if (this == &other) return *this;
    Reset();
    handle_ = std::exchange(other.handle_, -1);
    return *this;
}

LogFile::~LogFile() { Reset(); }

}  // namespace host
