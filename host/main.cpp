// fdhost: a command-line host for the decoder plug-in. It loads the plug-in
// at run time and drives its nine entry points as an audio application would.

#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "host/commands.h"
#include "host/console.h"
#include "host/errors.h"
#include "host/options.h"

namespace host {
namespace {

void PrintCommandUsage(std::FILE* out, const Command& command) {
    std::fprintf(out, "usage: fdhost [options] %s %s\n", command.name, command.usage);
}

void PrintHelp(std::FILE* out) {
    std::fputs("usage: fdhost [options] COMMAND [ARGS]\n\nCommands:\n", out);
    for (const Command* command : AllCommands()) {
        std::fprintf(out, "  %s %s\n      %s\n", command->name, command->usage, command->summary);
    }
    std::fputs(
        "\nOptions (before or after the command):\n"
        "  --plugin PATH        the plug-in to load (default: the one beside fdhost)\n"
        "  --trace-log PATH     give the plug-in this trace log (UTF-16LE, started afresh)\n"
        "  --error-log PATH     give the plug-in this error log (UTF-16LE, started afresh)\n"
        "  --quit-after-ms N    set the plug-in's quit event after N milliseconds\n"
        "  --json               print JSON instead of text\n"
        "  --help, -h           print this help, or the usage of COMMAND\n"
        "\nExit status: 0 success, 1 the plug-in reported failure, 2 usage error.\n",
        out);
}

int RunCommand(const Command& command, CommandContext& context) {
    try {
        return command.run(context);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "fdhost: %s\n", error.what());
        PrintCommandUsage(stderr, command);
        return kExitUsage;
    }
}

int Run(std::vector<std::string> args) {
    ParsedArguments parsed = ParseArguments(std::move(args));
    if (parsed.command.empty()) {
        if (!parsed.options.help) throw UsageError("no command given (try fdhost --help)");
        PrintHelp(stdout);
        return kExitOk;
    }
    const Command* command = FindCommand(parsed.command);
    if (command == nullptr) throw UsageError("unknown command '" + parsed.command + "' (try fdhost --help)");
    if (parsed.options.help) {
        PrintCommandUsage(stdout, *command);
        std::printf("%s\n", command->summary);
        return kExitOk;
    }
    CommandContext context{std::move(parsed.options), std::move(parsed.args)};
    return RunCommand(*command, context);
}

}  // namespace
}  // namespace host

int main(int argc, char** argv) {
    try {
        host::console::PrepareStandardStreams();
        const int code = host::Run(host::console::Arguments(argc, argv));
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
