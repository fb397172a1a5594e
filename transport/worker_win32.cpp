// The worker on Windows. The parent reads the child's channels with
// overlapped I/O, which anonymous pipes don't offer, so each channel is a
// named pipe under a fresh name with exactly one instance. The child starts
// hidden with one command line; it inherits only its own three ends. Stop
// closes the pipes, waits 2000 ms and then terminates.

#include <objbase.h>
#include <windows.h>

#include <cstdio>
#include <stdexcept>
#include <vector>

#include "transport/event.h"
#include "transport/exceptions.h"
#include "transport/worker.h"

namespace {

constexpr DWORD kPipeBuffer = 65536;
constexpr int kStartAttempts = 3;

[[noreturn]] void RaisePipeFailure() { throw std::runtime_error("pipe creation failure"); }

HANDLE Win(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// A handle closed with its owner.
class OwnedHandle {
public:
    OwnedHandle() = default;
    explicit OwnedHandle(HANDLE handle) : handle_(handle) {}
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;
    OwnedHandle(OwnedHandle&& other) noexcept : handle_(other.Release()) {}
    OwnedHandle& operator=(OwnedHandle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    ~OwnedHandle() { Reset(); }
    HANDLE Get() const { return handle_; }
    bool Valid() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
    HANDLE Release() {
        const HANDLE handle = handle_;
        handle_ = INVALID_HANDLE_VALUE;
        return handle;
    }
    void Reset(HANDLE handle = INVALID_HANDLE_VALUE) {
        if (Valid()) ::CloseHandle(handle_);
        handle_ = handle;
    }

private:
    HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// \\.\pipe\ and the 16 bytes of a fresh GUID in storage order, as hex digits.
// Wine ignores FILE_FLAG_FIRST_PIPE_INSTANCE, so uniqueness comes from the
// name alone.
std::wstring GenerateWorkerPipeName() {
    GUID guid{};
    if (FAILED(::CoCreateGuid(&guid))) throw std::runtime_error("CoCreateGuid failure");
    const auto* bytes = reinterpret_cast<const unsigned char*>(&guid);
    std::wstring name = L"\\\\.\\pipe\\";
    static constexpr wchar_t kDigits[] = L"0123456789abcdef";
    for (size_t i = 0; i < sizeof guid; ++i) {
        name += kDigits[bytes[i] >> 4];
        name += kDigits[bytes[i] & 0xF];
    }
    return name;
}

// One standard channel: the child's end (inheritable) and the parent's
// (overlapped, not inheritable, so no other worker can hold it open).
struct Channel {
    OwnedHandle child;
    OwnedHandle parent;
    HANDLE forChild = INVALID_HANDLE_VALUE;   // what the child gets
};

Channel MakeChannel(uint32_t mode, bool childReads, DWORD standardHandle) {
    Channel channel;
    if (mode == 1) {
        channel.forChild = ::GetStdHandle(standardHandle);
        return channel;
    }
    if (mode != 2) return channel;
    const std::wstring name = GenerateWorkerPipeName();
    const DWORD direction = childReads ? PIPE_ACCESS_OUTBOUND : PIPE_ACCESS_INBOUND;
    channel.parent.Reset(::CreateNamedPipeW(name.c_str(),
                                            direction | FILE_FLAG_FIRST_PIPE_INSTANCE | FILE_FLAG_OVERLAPPED,
                                            PIPE_TYPE_BYTE | PIPE_WAIT, 1, kPipeBuffer, kPipeBuffer, 0, nullptr));
    if (!channel.parent.Valid()) RaisePipeFailure();
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    channel.child.Reset(::CreateFileW(name.c_str(), childReads ? GENERIC_READ : GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, OPEN_EXISTING, 0, nullptr));
    if (!channel.child.Valid()) RaisePipeFailure();
    channel.forChild = channel.child.Get();
    return channel;
}

// Arguments joined by blanks; one that holds a blank goes in double quotes.
// Nothing inside an argument is escaped.
std::string CommandLine(const WorkerCommand& command) {
    if (!command.rawCommandLine.empty()) return command.rawCommandLine;
    std::string line;
    for (const std::string& arg : command.args) {
        if (!line.empty()) line += ' ';
        if (arg.find(' ') != std::string::npos) {
            line += '"' + arg + '"';
        } else {
            line += arg;
        }
    }
    return line;
}

std::wstring Wide(const std::string& utf8) {
    const std::u16string units = FromUtf8Units(utf8.data(), utf8.size());
    return std::wstring(units.begin(), units.end());
}

// The child inherits exactly its own pipe ends, even while other decoders
// start workers at the same moment.
class InheritList {
public:
    explicit InheritList(std::vector<HANDLE> handles) : handles_(std::move(handles)) {
        SIZE_T size = 0;
        ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        storage_.resize(size);
        list_ = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage_.data());
        if (!::InitializeProcThreadAttributeList(list_, 1, 0, &size)) {
            list_ = nullptr;
            return;
        }
        if (!handles_.empty() &&
            !::UpdateProcThreadAttribute(list_, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(),
                                         handles_.size() * sizeof(HANDLE), nullptr, nullptr)) {
            ::DeleteProcThreadAttributeList(list_);
            list_ = nullptr;
        }
    }
    InheritList(const InheritList&) = delete;
    InheritList& operator=(const InheritList&) = delete;
    ~InheritList() {
        if (list_ != nullptr) ::DeleteProcThreadAttributeList(list_);
    }
    LPPROC_THREAD_ATTRIBUTE_LIST Get() const { return list_; }

private:
    std::vector<HANDLE> handles_;
    std::vector<unsigned char> storage_;
    LPPROC_THREAD_ATTRIBUTE_LIST list_ = nullptr;
};

void ClosePipe(Qel::PipeHandle& handle) {
    if (handle == Qel::kNoPipe) return;
    ::CloseHandle(Win(handle));
    handle = Qel::kNoPipe;
}

void CloseStreamEvent(Qel::EventHandle& event) {
    Qel::CloseEventObject(event);
    event = Qel::kNoEvent;
}

}  // namespace

void WorkerProcess::Launch() {
    stdinStream_.event = Qel::CreateEventObject();
    stdoutStream_.event = Qel::CreateEventObject();
    stderrStream_.event = Qel::CreateEventObject();
    Channel input = MakeChannel(command_.stdinMode, true, STD_INPUT_HANDLE);
    Channel output = MakeChannel(command_.stdoutMode, false, STD_OUTPUT_HANDLE);
    Channel error = MakeChannel(command_.stderrMode, false, STD_ERROR_HANDLE);

    std::vector<HANDLE> inherited;
    for (const Channel* channel : {&input, &output, &error}) {
        if (channel->child.Valid()) inherited.push_back(channel->child.Get());
    }
    InheritList inheritList(inherited);

    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW | STARTF_FORCEOFFFEEDBACK;
    startup.StartupInfo.wShowWindow = SW_HIDE;
    startup.StartupInfo.hStdInput = input.forChild;
    startup.StartupInfo.hStdOutput = output.forChild;
    startup.StartupInfo.hStdError = error.forChild;
    startup.lpAttributeList = inheritList.Get();

    const std::wstring program = Wide(command_.exe);
    std::wstring line = Wide(CommandLine(command_));
    const std::wstring folder = Wide(command_.workingDirectory);
    PROCESS_INFORMATION info{};
    const DWORD flags = inheritList.Get() != nullptr ? EXTENDED_STARTUPINFO_PRESENT : 0;
    // Wine now and then loses a new process while it starts (more often on a
    // busy machine) and reports ERROR_INTERNAL_ERROR. Nothing runs then, so
    // the start is simply made again.
    DWORD code = ERROR_INTERNAL_ERROR;
    for (int attempt = 0; attempt < kStartAttempts && code == ERROR_INTERNAL_ERROR; ++attempt) {
        const BOOL started = ::CreateProcessW(program.empty() ? nullptr : program.c_str(), line.data(), nullptr,
                                             nullptr, TRUE, flags, nullptr, folder.empty() ? nullptr : folder.c_str(),
                                             &startup.StartupInfo, &info);
        code = started ? ERROR_SUCCESS : ::GetLastError();
    }
    if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) throw Qel::file_not_found();
    if (code != ERROR_SUCCESS) throw std::runtime_error("could not start the worker process");
    ::CloseHandle(info.hThread);
    process_ = reinterpret_cast<intptr_t>(info.hProcess);
    // The child's ends close here with their owners: the parent must not hold
    // a write end, or it would never see the end of the stream.
    stdinStream_.handle = reinterpret_cast<Qel::PipeHandle>(input.parent.Release());
    stdoutStream_.handle = reinterpret_cast<Qel::PipeHandle>(output.parent.Release());
    stderrStream_.handle = reinterpret_cast<Qel::PipeHandle>(error.parent.Release());
}

// The transfer events go with the pipes: nothing reads after this.
void WorkerProcess::ClosePipes() {
    ClosePipe(stdinStream_.handle);
    ClosePipe(stdoutStream_.handle);
    ClosePipe(stderrStream_.handle);
    CloseStreamEvent(stdinStream_.event);
    CloseStreamEvent(stdoutStream_.event);
    CloseStreamEvent(stderrStream_.event);
}

bool WorkerProcess::WaitForExit(int64_t limitMs) {
    return ::WaitForSingleObject(Win(process_), static_cast<DWORD>(limitMs)) == WAIT_OBJECT_0;
}

// Exit code -1, as a killed worker reports it. The wait after it is bounded:
// a process that can't be ended is let go rather than hang the host.
void WorkerProcess::Kill() {
    if (process_ == 0) return;
    if (::TerminateProcess(Win(process_), static_cast<UINT>(-1))) {
        ::WaitForSingleObject(Win(process_), static_cast<DWORD>(kGraceMs));
    }
}

void WorkerProcess::Reap() {
    if (process_ != 0) ::CloseHandle(Win(process_));
    process_ = 0;
}
