// fdhost: a command-line host for the decoder plug-in. It loads the plug-in
// at run time and drives its nine entry points as an audio application would.

#include <cstdio>
#include <exception>

#include "host/cli.h"
#include "host/console.h"
#include "host/errors.h"

int main(int argc, char** argv) {
    try {
        host::console::PrepareStandardStreams();
        const int code = host::RunCommandLine(host::console::Arguments(argc, argv));
        // Output that could not be written is a failure, not a success.
        if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
            std::fputs("fdhost: cannot write the output\n", stderr);
            return host::kExitFailed;
        }
        return code;
    } catch (const host::UsageError& error) {
        std::fprintf(stderr, "fdhost: %s\n", error.what());
        return host::kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fdhost: %s\n", error.what());
        return host::kExitFailed;
    }
}
