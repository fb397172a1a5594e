#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "streampipe.h"
#include "transport/event.h"

StreamPipe::StreamPipe() {
    static std::atomic<int> serial{0};
    const std::wstring name = L"\\\\.\\pipe\\fd-stream-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                              std::to_wstring(serial++) + L"-" + std::to_wstring(::GetTickCount64());
    const HANDLE reader = ::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                                             PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr);
    if (reader == INVALID_HANDLE_VALUE) throw std::runtime_error("CreateNamedPipeW");
    const HANDLE writer =
        ::CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (writer == INVALID_HANDLE_VALUE) {
        ::CloseHandle(reader);
        throw std::runtime_error("CreateFileW on the pipe");
    }
    in.handle = reinterpret_cast<Qel::PipeHandle>(reader);
    out.handle = reinterpret_cast<Qel::PipeHandle>(writer);
    in.event = Qel::CreateEventObject();
    out.event = Qel::CreateEventObject();
}

StreamPipe::~StreamPipe() {
    CloseWriteEnd();
    ::CloseHandle(reinterpret_cast<HANDLE>(in.handle));
    Qel::CloseEventObject(in.event);
    Qel::CloseEventObject(out.event);
}

void StreamPipe::CloseWriteEnd() {
    if (out.handle != Qel::kNoPipe) ::CloseHandle(reinterpret_cast<HANDLE>(out.handle));
    out.handle = Qel::kNoPipe;
}
