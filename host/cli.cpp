#include "host/cli.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string>

#include "host/commands.h"
#include "host/errors.h"

#ifndef FD_HOST_VERSION
#define FD_HOST_VERSION "unknown"
#endif

namespace host {
namespace {

constexpr const char* kExitFooter =
    "\nExit status: 0 success, 1 the plug-in or the system failed (the reason is on standard error),\n"
    "2 usage error (nothing was changed).\n";

void AddCommonOptions(CLI::App& app, CommonOptions& options) {
    app.add_option("--plugin", options.pluginPath, "the plug-in to load (default: the one beside fdhost)")
        ->type_name("PATH")
        ->check(NonEmpty());
    app.add_option("--trace-log", options.traceLogPath, "give the plug-in this trace log (UTF-16LE, started afresh)")
        ->type_name("PATH")
        ->check(NonEmpty());
    app.add_option("--error-log", options.errorLogPath, "keep a copy of the plug-in's error log (UTF-16LE, started afresh)")
        ->type_name("PATH")
        ->check(NonEmpty());
    app.add_option("--quit-after-ms", options.quitAfterMs, "set the plug-in's quit event after N milliseconds")
        ->type_name("N")
        ->check(WholeNumber());
    app.add_flag("--json", options.json, "print JSON instead of text");
}

// The common options as a command's help shows them, one line each, from
// their definitions on the main command.
std::string CommonFooter(const CLI::App& app) {
    std::string text = "\nCommon options (before or after the command):\n";
    for (const CLI::Option* option : app.get_options()) {
        if (option == app.get_help_ptr() || option == app.get_version_ptr()) continue;
        std::string left = "  " + option->get_name();
        if (!option->get_type_name().empty()) left += " " + option->get_type_name();
        left.resize(std::max<size_t>(left.size() + 1, 23), ' ');
        text += left + option->get_description() + "\n";
    }
    return text;
}

// An option that may stand once, given more often, is a mistake to report
// rather than to settle by taking the first or the last.
void RefuseRepeats(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll) continue;
        if (option->count() > 1) throw UsageError("option " + option->get_name() + " given twice");
    }
}

}  // namespace

const CLI::Validator& WholeNumber() {
    static const CLI::Validator validator(
        [](std::string& text) -> std::string {
            int64_t value = 0;
            const char* end = text.data() + text.size();
            const auto [ptr, error] = std::from_chars(text.data(), end, value);
            if (text.empty() || error != std::errc() || ptr != end || value < 0) {
                return "needs a whole number of at least 0, not '" + text + "'";
            }
            return {};
        },
        "");
    return validator;
}

const CLI::Validator& NonEmpty() {
    static const CLI::Validator validator(
        [](std::string& text) -> std::string { return text.empty() ? "needs a value" : ""; }, "");
    return validator;
}

int RunCommandLine(std::vector<std::string> args) {
    CLI::App app("fdhost drives the FFmpeg decoder plug-in as an audio application would.", "fdhost");
    app.set_version_flag("--version", "fdhost " FD_HOST_VERSION, "print fdhost's version");
    app.set_help_flag("-h,--help", "print this help, or with a command its options");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.require_subcommand(0, 1);
    app.get_formatter()->column_width(36);

    CommandContext context;
    AddCommonOptions(app, context.options);
    const std::string commonFooter = CommonFooter(app);
    for (const Command* command : AllCommands()) {
        CLI::App* sub = app.add_subcommand(command->name, command->summary);
        sub->fallthrough();
        command->define(*sub, context.args);
        sub->footer(sub->get_footer() + commonFooter + kExitFooter);
    }
    app.footer(kExitFooter);   // after the commands, which would take it as their own

    std::reverse(args.begin(), args.end());   // CLI11 takes them last first
    try {
        app.parse(args);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }

    const std::vector<CLI::App*> chosen = app.get_subcommands();
    if (chosen.empty()) throw UsageError("no command given (try fdhost --help)");
    RefuseRepeats(app);
    RefuseRepeats(*chosen.front());
    for (const Command* command : AllCommands()) {
        if (chosen.front()->get_name() == command->name) return command->run(context);
    }
    throw UsageError("unknown command");
}

}  // namespace host
