// Pipe streams on Windows: overlapped ReadFile/WriteFile on the parent's end
// of a named pipe. Each piece waits for its event and the current aborter
// together, within the time limit; an abort or a time-out cancels the
// transfer with CancelIo before the call returns, so the buffer is never
// written behind the caller's back.

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "transport/event.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/waitable.h"

namespace Qel {
namespace {

constexpr size_t kPieceSize = 0x1000000;   // 16 MiB

[[noreturn]] void RaiseForWin32Error(DWORD code) {
    switch (code) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            throw file_not_found();
        case ERROR_DIR_NOT_EMPTY:
            throw directory_not_empty();
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS:
            throw file_already_exists();
        default:
            throw file_access_error();
    }
}

bool IsEndOfStream(DWORD code) { return code == ERROR_HANDLE_EOF || code == ERROR_BROKEN_PIPE; }

int64_t LimitMs(double timeoutSeconds) {
    if (timeoutSeconds <= 0) return -1;
    return static_cast<int64_t>(std::floor(timeoutSeconds * 1000.0 + 0.5));
}

HANDLE Win(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// The stream's own event, or one for this call only when it has none.
class PieceEvent {
public:
    explicit PieceEvent(EventHandle given) : handle_(given) {
        if (handle_ != kNoEvent && handle_ != 0) return;
        handle_ = CreateEventObject();
        owned_ = true;
    }
    PieceEvent(const PieceEvent&) = delete;
    PieceEvent& operator=(const PieceEvent&) = delete;
    ~PieceEvent() {
        if (owned_) CloseEventObject(handle_);
    }
    HANDLE Get() const { return Win(handle_); }

private:
    EventHandle handle_;
    bool owned_ = false;
};

// Waits for the transfer's event and the current aborter. Anything but the
// event cancels the transfer and raises.
void AwaitTransfer(HANDLE pipe, OVERLAPPED& overlapped, int64_t limitMs) {
    aborter* abort = CurrentAborter();
    EventHandle handles[2] = {reinterpret_cast<EventHandle>(overlapped.hEvent), abort ? abort->Handle() : kNoEvent};
    const int index = WaitForAnyEvent(handles, abort ? 2 : 1, limitMs);
    if (index == 0) return;
    ::CancelIo(pipe);
    // Let the cancelled transfer finish before its buffer and OVERLAPPED go.
    DWORD ignored = 0;
    ::GetOverlappedResult(pipe, &overlapped, &ignored, TRUE);
    if (index == 1) throw user_abort();
    if (limitMs >= 0) throw network_error_timeout();
    throw file_access_error();
}

// As on Linux: data that is there is taken even when the aborter is set; the
// aborter counts only while the transfer waits (AwaitTransfer).
size_t ReadPiece(HANDLE pipe, HANDLE event, uint8_t* buffer, size_t count, int64_t limitMs) {
    if (count == 0) return 0;
    OVERLAPPED overlapped{};
    overlapped.hEvent = event;
    ::ResetEvent(event);
    ::SetLastError(0);
    DWORD got = 0;
    if (::ReadFile(pipe, buffer, static_cast<DWORD>(count), &got, &overlapped)) return got;
    const DWORD error = ::GetLastError();
    if (IsEndOfStream(error)) return 0;
    if (error != ERROR_IO_PENDING) RaiseForWin32Error(error);
    AwaitTransfer(pipe, overlapped, limitMs);
    if (!::GetOverlappedResult(pipe, &overlapped, &got, TRUE)) {
        const DWORD late = ::GetLastError();
        if (IsEndOfStream(late)) return 0;
        ::CancelIo(pipe);
        RaiseForWin32Error(late);
    }
    return got;
}

void WritePiece(HANDLE pipe, HANDLE event, const uint8_t* buffer, size_t count, int64_t limitMs) {
    CheckAbort();
    OVERLAPPED overlapped{};
    overlapped.hEvent = event;
    ::ResetEvent(event);
    ::SetLastError(0);
    DWORD put = 0;
    if (::WriteFile(pipe, buffer, static_cast<DWORD>(count), &put, &overlapped)) {
        if (put != count) throw file_access_error();
        return;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_IO_PENDING) RaiseForWin32Error(error);
    AwaitTransfer(pipe, overlapped, limitMs);
    if (!::GetOverlappedResult(pipe, &overlapped, &put, TRUE)) {
        const DWORD late = ::GetLastError();
        ::CancelIo(pipe);
        RaiseForWin32Error(late);
    }
    if (put != count) throw file_access_error();
}

}  // namespace

size_t streamInOverlapped::read(void* buffer, size_t count) {
    const int64_t limitMs = LimitMs(timeoutSeconds);
    const PieceEvent pieceEvent(event);
    auto* bytes = static_cast<uint8_t*>(buffer);
    size_t total = 0;
    while (total < count) {
        const size_t piece = std::min(count - total, kPieceSize);
        const size_t got = ReadPiece(Win(handle), pieceEvent.Get(), bytes + total, piece, limitMs);
        if (got == 0) break;
        total += got;
    }
    return total;
}

size_t streamInOverlapped::readSome(void* buffer, size_t count) {
    const PieceEvent pieceEvent(event);
    return ReadPiece(Win(handle), pieceEvent.Get(), static_cast<uint8_t*>(buffer), std::min(count, kPieceSize),
                     LimitMs(timeoutSeconds));
}

void streamOutOverlapped::write(const void* buffer, size_t count) {
    const int64_t limitMs = LimitMs(timeoutSeconds);
    const PieceEvent pieceEvent(event);
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    size_t total = 0;
    while (total < count) {
        const size_t piece = std::min(count - total, kPieceSize);
        WritePiece(Win(handle), pieceEvent.Get(), bytes + total, piece, limitMs);
        total += piece;
    }
}

}  // namespace Qel
