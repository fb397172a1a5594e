// The test kit's system part on Windows: child processes with captured
// output, and this process's handles, threads and children.

#include <windows.h>
#include <tlhelp32.h>

#include <stdexcept>

#include "support/textcodec.h"
#include "testkit.h"

namespace it {
namespace {

std::wstring Wide(const std::string& utf8) {
    const std::u16string units = text::Utf8ToUtf16(utf8);
    return std::wstring(units.begin(), units.end());
}

// The usual rules for one argument on a command line: quotes where needed, backslashes before a quote doubled.
std::wstring Quoted(const std::wstring& arg) {
    if (!arg.empty() && arg.find_first_of(L" \t\"") == std::wstring::npos) return arg;
    std::wstring out = L"\"";
    size_t backslashes = 0;
    for (const wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        out += c;
    }
    out.append(backslashes * 2, L'\\');
    return out + L"\"";
}

// A capture file the child inherits, removed when closed.
HANDLE CaptureFile(const std::string& path) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE file = ::CreateFileW(Wide(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("no capture file");
    return file;
}

std::string TextOf(HANDLE file) {
    ::SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    std::string text;
    char buffer[65536];
    DWORD got = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0) text.append(buffer, got);
    ::CloseHandle(file);
    return text;
}

// Threads or processes whose owner or parent (`field`) is this process.
template <class Entry, class Step>
int CountOwned(DWORD kind, Step first, Step next, DWORD Entry::*field) {
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(kind, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    int count = 0;
    Entry entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = first(snapshot, &entry); more; more = next(snapshot, &entry))
        count += entry.*field == ::GetCurrentProcessId();
    ::CloseHandle(snapshot);
    return count;
}

// Wine answers GetProcessHandleCount with 0; then the handle values are probed one by one (they are multiples of 4).
// Wine hands out the lowest free value, so the probe stops after a long run of free ones.
int HandleCount() {
    DWORD count = 0;
    if (::GetProcessHandleCount(::GetCurrentProcess(), &count) && count > 0) return static_cast<int>(count);
    int probed = 0;
    for (uintptr_t value = 4, lastUsed = 0; value < 0x40000 && value - lastUsed < 4 * 4096; value += 4) {
        if (!::GetHandleInformation(reinterpret_cast<HANDLE>(value), &count)) continue;
        ++probed;
        lastUsed = value;
    }
    return probed;
}

}  // namespace

RunResult Run(const std::vector<std::string>& argv) {
    TempDir captures;
    const HANDLE out = CaptureFile(captures.File("out"));
    const HANDLE err = CaptureFile(captures.File("err"));
    std::wstring line;
    for (const std::string& arg : argv) line += (line.empty() ? L"" : L" ") + Quoted(Wide(arg));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = INVALID_HANDLE_VALUE;
    startup.hStdOutput = out;
    startup.hStdError = err;
    PROCESS_INFORMATION info{};
    // Wine now and then loses a start with ERROR_INTERNAL_ERROR and nothing
    // runs; the plug-in's worker start tries again, and so do the tests.
    DWORD code = ERROR_INTERNAL_ERROR;
    for (int attempt = 0; attempt < 3 && code == ERROR_INTERNAL_ERROR; ++attempt) {
        code = ::CreateProcessW(Wide(argv[0]).c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                &startup, &info)
                   ? ERROR_SUCCESS
                   : ::GetLastError();
    }
    RunResult result;
    const bool started = code == ERROR_SUCCESS;
    if (started) {
        ::CloseHandle(info.hThread);
        ::WaitForSingleObject(info.hProcess, INFINITE);
        ::GetExitCodeProcess(info.hProcess, &code);
        ::CloseHandle(info.hProcess);
        result.exitCode = static_cast<int>(code);
    }
    result.out = TextOf(out);
    result.err = TextOf(err);
    if (!started) result.err = "cannot start " + argv[0] + ", error " + std::to_string(code);
    return result;
}

Resources CurrentResources() {
    return {HandleCount(), CountOwned(TH32CS_SNAPTHREAD, Thread32First, Thread32Next, &THREADENTRY32::th32OwnerProcessID),
            CountOwned(TH32CS_SNAPPROCESS, Process32FirstW, Process32NextW, &PROCESSENTRY32W::th32ParentProcessID)};
}

bool RunLockedOut(const std::string& /*dir*/, const std::string& path, const std::function<bool()>& body) {
    const HANDLE lock = ::CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (lock == INVALID_HANDLE_VALUE) return false;
    const bool result = body();
    ::CloseHandle(lock);
    return result;
}

SinkFile::SinkFile(const std::string& path) {
    const HANDLE file = ::CreateFileW(Wide(path).c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot create " + path);
    handle_ = reinterpret_cast<intptr_t>(file);
}

SinkFile::~SinkFile() { ::CloseHandle(reinterpret_cast<HANDLE>(handle_)); }

}  // namespace it
