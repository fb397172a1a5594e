// A stand-in for the worker in the Windows build's tests. A Windows program
// under Wine can't run the Linux ffmpeg through pipes, so the tests record
// ffmpeg's real output on the Linux side, and this program plays it back by
// its command line: "[-ss S] -i PATH -f w64 -" writes PATH.w64 (or
// PATH.ssS.w64) to standard output and PATH.err (PATH.ssS.err) to standard
// error. It appends its own command line to PATH.cmdline. PATH.mode, when
// present, makes it misbehave:
//   stall N   all of the error text, N bytes of audio, then sleep for ever
//   ignore    the output, then close its ends and sleep for ever; a write
//             to a pipe the plug-in closed is no reason to end either
//   die N     all of the error text, N bytes of audio, then exit with code 1

// windows.h first: shellapi.h needs its types.
#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string Utf8(const std::wstring& wide) {
    const int size =
        ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), out.data(), size, nullptr, nullptr);
    return out;
}

std::string ReadAll(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// False once the pipe is gone; the rest is then dropped.
bool WriteAll(HANDLE to, const std::string& bytes, size_t limit) {
    size_t done = 0;
    const size_t end = std::min(limit, bytes.size());
    while (done < end) {
        const DWORD piece = static_cast<DWORD>(std::min<size_t>(end - done, 65536));
        DWORD written = 0;
        if (!::WriteFile(to, bytes.data() + done, piece, &written, nullptr) || written == 0) return false;
        done += written;
    }
    return true;
}

[[noreturn]] void SleepForEver() {
    for (;;) ::Sleep(60000);
}

}  // namespace

int main() {
    int count = 0;
    wchar_t** args = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    std::wstring input;
    std::wstring start;
    for (int i = 1; i + 1 < count; ++i) {
        if (std::wstring(args[i]) == L"-i") input = args[i + 1];
        if (std::wstring(args[i]) == L"-ss") start = args[i + 1];
    }
    ::LocalFree(args);
    if (input.empty()) return 2;

    std::ofstream(std::filesystem::path(input + L".cmdline"), std::ios::app | std::ios::binary) << Utf8(::GetCommandLineW()) << "\n";
    const std::wstring recording = start.empty() ? input : input + L".ss" + start;
    const std::string audio = ReadAll(recording + L".w64");
    const std::string text = ReadAll(recording + L".err");
    std::istringstream mode(ReadAll(input + L".mode"));
    std::string behaviour;
    size_t limit = SIZE_MAX;
    mode >> behaviour >> limit;

    const HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
    const HANDLE err = ::GetStdHandle(STD_ERROR_HANDLE);
    WriteAll(err, text, SIZE_MAX);
    if (behaviour == "stall") {
        WriteAll(out, audio, limit);
        SleepForEver();
    }
    if (behaviour == "die") {
        WriteAll(out, audio, limit);
        return 1;
    }
    WriteAll(out, audio, SIZE_MAX);
    if (behaviour == "ignore") {
        ::CloseHandle(out);
        ::CloseHandle(err);
        SleepForEver();
    }
    return audio.empty() ? 1 : 0;
}
