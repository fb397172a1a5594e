// clFile: one file handle for the tag engines. Message boxes have no place on
// this platform; `showMessages` is kept for the record layout and ignored.

#include "support/clFile.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "support/filehandle.h"
#include "support/platform.h"

namespace {

// The step of the zero fill and of the tail move.
constexpr uint32_t kBlockSize = 65536;
// The most a backward move keeps in memory of the bytes it overwrites in
// front of the tail (an ID3v2 tag is at most 256 MiB).
constexpr int64_t kMaxSaved = int64_t{1} << 30;

// The tail move and its undo. Each step reads its block whole before it
// writes it, so a write that fails half-way still has the bytes in memory.
class TailMove {
public:
    explicit TailMove(clFile& file) : file_(file), block_(std::make_unique<uint8_t[]>(kBlockSize)) {}

    // Moves `length` bytes from `source` to `target`, in the order that reads
    // every byte before it is overwritten. On failure, `moved*` tell the part
    // that reached its target whole and `step*` the step that failed.
    bool Range(int64_t source, int64_t target, int64_t length) {
        const bool backwards = target > source;
        movedSource_ = backwards ? source + length : source;
        movedLength_ = 0;
        for (int64_t left = length; left > 0;) {
            const auto count = static_cast<uint32_t>(std::min<int64_t>(left, kBlockSize));
            const int64_t offset = backwards ? left - count : length - left;
            if (!Step(source + offset, target + offset, count)) return false;
            if (backwards) movedSource_ = source + offset;
            movedLength_ += count;
            left -= count;
        }
        return true;
    }

    // Puts back what a failed Range changed, `saved` (the bytes at `savedAt`
    // that the move overwrote outside its source) and the file's length.
    bool Undo(int64_t shift, const std::vector<uint8_t>& saved, int64_t savedAt, int64_t size) {
        if (!RestoreStepSource()) return false;
        const int64_t movedFrom = movedSource_, movedLength = movedLength_;
        if (movedLength > 0 && !Range(movedFrom + shift, movedFrom, movedLength)) return false;
        if (!saved.empty() && !WriteAt(savedAt, saved.data(), static_cast<uint32_t>(saved.size()))) return false;
        bool failed = false;
        const int64_t now = file_.Size(&failed);
        return !failed && (now == size || file_.SetLength(size));
    }

private:
    bool Step(int64_t source, int64_t target, uint32_t count) {
        stepSource_ = source;
        stepTarget_ = target;
        stepCount_ = count;
        stepWritten_ = 0;
        pending_ = false;
        bool failed = false;
        if (!file_.Seek(source, clFile::kFromStart) || file_.Read(block_.get(), count, &failed) != count || failed)
            return false;
        pending_ = true;
        if (!file_.Seek(target, clFile::kFromStart) ||
            !filehandle::Write(file_.handle, block_.get(), count, stepWritten_) || stepWritten_ != count)
            return false;
        pending_ = false;
        return true;
    }

    // A write that failed part-way may have hit its own source (a shift
    // smaller than the block): those bytes come back from the block.
    bool RestoreStepSource() {
        if (!pending_ || stepWritten_ == 0) return true;
        const int64_t from = std::max(stepTarget_, stepSource_);
        const int64_t to = std::min(stepTarget_ + stepWritten_, stepSource_ + stepCount_);
        if (from >= to) return true;
        return WriteAt(from, block_.get() + (from - stepSource_), static_cast<uint32_t>(to - from));
    }

    bool WriteAt(int64_t position, const uint8_t* bytes, uint32_t count) {
        return file_.Seek(position, clFile::kFromStart) && file_.Write(bytes, count, clFile::kAtCurrent);
    }

    clFile& file_;
    std::unique_ptr<uint8_t[]> block_;
    int64_t movedSource_ = 0, movedLength_ = 0;
    int64_t stepSource_ = 0, stepTarget_ = 0;
    uint32_t stepCount_ = 0, stepWritten_ = 0;
    bool pending_ = false;   // a step read its block and failed to write it whole
};

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

// A failed step undoes the move, so that a transient fault leaves the file
// as it was; `damaged` tells when the undo failed too.
bool clFile::ShiftTail(int64_t position, int64_t delta, bool* damaged) {
    bool failed = false;
    const int64_t size = Size(&failed);
    if (failed) return false;
    if (delta == 0 || position < 0) return true;
    const int64_t target = std::max<int64_t>(position + delta, 0);
    const int64_t length = std::max<int64_t>(size - position, 0);

    // A backward move overwrites bytes in front of the tail: they are kept
    // for the undo.
    std::vector<uint8_t> saved;
    if (target < position && length > 0) {
        const int64_t count = std::min(position, target + length) - target;
        if (count > kMaxSaved) return false;
        saved.resize(static_cast<size_t>(count));
        const auto bytes = static_cast<uint32_t>(count);
        if (!Seek(target, kFromStart) || Read(saved.data(), bytes, &failed) != bytes || failed) return false;
    }
    TailMove move(*this);
    if (move.Range(position, target, length) && SetLength(std::max<int64_t>(size + delta, 0))) return true;
    if (!move.Undo(target - position, saved, target, size) && damaged != nullptr) *damaged = true;
    return false;
}

clString clFile::OpenErrorText(const clString& filePath) {
    const int error = platform::LastError();   // taken first: building the text may touch it
    if (filePath.Empty()) return clString(u"No file specified!");
    clString message(u"Error opening file '");
    message.Append(filePath);
    message.Append(u"', check no other program has it open.");
    if (error != 0) {
        message.Append(clString(u" (" + platform::ErrorText(error) + u")"));
    }
    return message;
}

clString clFile::LongPath(const clString& filePath) { return filehandle::LongPath(filePath); }
