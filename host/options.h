#pragma once
// The command line: common options, accepted before or after the command
// name, and helpers with which a command takes its own options from what is
// left.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct CommonOptions {
    std::string pluginPath;       // empty: the plug-in beside fdhost
    std::string traceLogPath;     // empty: no trace log
    std::string errorLogPath;     // empty: no error log
    int64_t quitAfterMs = -1;     // below 0: never set the quit event
    bool json = false;
    bool help = false;
};

struct ParsedArguments {
    CommonOptions options;
    std::string command;              // empty when none was given
    std::vector<std::string> args;    // after the command, without common options
};

// Throws UsageError for a missing or malformed option value.
ParsedArguments ParseArguments(std::vector<std::string> all);

// Takes "--name VALUE" or "--name=VALUE" out of args; false when absent.
// Throws UsageError when the value is missing.
bool TakeOption(std::vector<std::string>& args, std::string_view name, std::string& value);
// Takes every "--name" out of args; true when there was one.
bool TakeFlag(std::vector<std::string>& args, std::string_view name);
// What is left must be between min and max plain arguments and no option;
// throws UsageError otherwise.
void RequireArguments(const std::vector<std::string>& args, size_t min, size_t max);
// A whole decimal number of at least 0; throws UsageError otherwise.
int64_t ParseCount(std::string_view option, std::string_view text);

}  // namespace host
