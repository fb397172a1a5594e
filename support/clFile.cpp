// clFile: one file handle for the tag engines. Message boxes have no place on
// this platform; `showMessages` is kept for the record layout and ignored.

#include "support/clFile.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "support/filehandle.h"
#include "support/platform.h"

namespace {

// The step of the zero fill and of the tail move.
constexpr uint32_t kBlockSize = 65536;

}  // namespace

clFile::clFile(const clString& filePath) : path(filePath) {}

clFile clFile::Borrow(const clFile& owner) {
    clFile view;
    view.handle = owner.handle;
    view.ownsHandle = false;
    view.shareMode = owner.shareMode;
    return view;
}

clFile::clFile(clFile&& other) noexcept
    : path(std::move(other.path)),
      handle(std::exchange(other.handle, kNoFileHandle)),
      showMessages(other.showMessages),
      ownsHandle(other.ownsHandle),
      shareMode(other.shareMode) {}

clFile& clFile::operator=(clFile&& other) noexcept {
    if (this == &other) return *this;
    Close();
    path = std::move(other.path);
    handle = std::exchange(other.handle, kNoFileHandle);
    showMessages = other.showMessages;
    ownsHandle = other.ownsHandle;
    shareMode = other.shareMode;
    return *this;
}

clFile::~clFile() { Close(); }

bool clFile::Open(uint32_t access) {
    Close();
    showMessages = false;
    ownsHandle = true;
    const clString target = LongPath(path);
    if (target.Empty()) return false;
    handle = filehandle::Open(target, access, shareMode);
    return IsOpen();
}

void clFile::Close() {
    if (IsOpen() && ownsHandle) filehandle::Close(handle);
    handle = kNoFileHandle;
}

uint32_t clFile::Read(void* buffer, uint32_t count, bool* failed) {
    uint32_t done = 0;
    const bool ok = IsOpen() && (count == 0 || buffer != nullptr) &&
                    filehandle::Read(handle, buffer, count, done);
    if (!ok && failed != nullptr) *failed = true;
    return done;
}

bool clFile::Write(const void* buffer, uint32_t count, int where) {
    if (buffer == nullptr) return count == 0;
    if (!IsOpen()) return false;
    if (where == kAtStart && !Seek(0, kFromStart)) return false;
    if (where == kAtEnd && !Seek(0, kFromEnd)) return false;
    uint32_t done = 0;
    return filehandle::Write(handle, buffer, count, done) && done == count;
}

bool clFile::Seek(int64_t position, int origin) {
    if (!IsOpen()) return false;
    int64_t reached = 0;
    return filehandle::Seek(handle, position, origin, reached);
}

int64_t clFile::Tell() const {
    if (!IsOpen()) return -1;
    int64_t position = 0;
    if (!filehandle::Seek(handle, 0, kFromCurrent, position)) return -1;
    return position;
}

int64_t clFile::Size(bool* failed) const {
    int64_t size = 0;
    if (IsOpen() && filehandle::Size(handle, size)) return size;
    if (failed != nullptr) *failed = true;
    return -1;
}

bool clFile::SetLength(int64_t length) {
    if (length < 0) return false;
    bool failed = false;
    const int64_t size = Size(&failed);
    if (failed) return false;
    if (length <= size) return Seek(length, kFromStart) && filehandle::SetEndOfFile(handle);
    if (!Seek(0, kFromEnd)) return false;
    const auto zeros = std::make_unique<uint8_t[]>(kBlockSize);   // value-initialised: zeros
    for (int64_t left = length - size; left > 0;) {
        const auto step = static_cast<uint32_t>(std::min<int64_t>(left, kBlockSize));
        if (!Write(zeros.get(), step, kAtCurrent)) return false;
        left -= step;
    }
    return true;
}

bool clFile::ShiftTail(int64_t position, int64_t delta) {
    bool failed = false;
    const int64_t size = Size(&failed);
    if (failed) return false;
    if (delta == 0 || position < 0) return true;
    const auto block = std::make_unique<uint8_t[]>(kBlockSize);

    // One step: `count` bytes from `source` to `target`.
    auto move = [&](int64_t source, int64_t target, uint32_t count) {
        return Seek(source, kFromStart) && Read(block.get(), count, &failed) == count && !failed &&
               Seek(target, kFromStart) && Write(block.get(), count, kAtCurrent);
    };

    bool ok = true;
    if (delta > 0) {
        // From the end backwards, so that no byte is overwritten before it was read.
        for (int64_t end = size; ok && end > position;) {
            const auto count = static_cast<uint32_t>(std::min<int64_t>(end - position, kBlockSize));
            const int64_t source = end - count;
            ok = move(source, source + delta, count);
            end = source;
        }
    } else {
        const int64_t firstTarget = std::max<int64_t>(position + delta, 0);
        for (int64_t source = position; ok && source < size;) {
            const auto count = static_cast<uint32_t>(std::min<int64_t>(size - source, kBlockSize));
            ok = move(source, firstTarget + (source - position), count);
            source += count;
        }
    }
    const bool resized = SetLength(std::max<int64_t>(size + delta, 0));
    return ok && resized;
}

clString clFile::OpenErrorText(const clString& filePath) {
    const int error = platform::LastError();   // taken first: building the text may touch it
    if (filePath.Empty()) return clString(u"No file specified!");
    clString message(u"Error opening file '");
    message.Append(filePath);
    message.Append(u"', check no other program has it open.");
    if (error != 0) {
        message.Append(u' ');
        message.Append(clString::Format(platform::OpenErrorFormat(), error));
    }
    return message;
}

clString clFile::LongPath(const clString& filePath) { return filehandle::LongPath(filePath); }
