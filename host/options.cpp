#include "host/options.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/errors.h"

namespace host {
namespace {

bool IsOption(std::string_view arg) { return arg.size() > 1 && arg[0] == '-'; }

// "--name=value" splits into name and value; returns whether it had "=".
bool SplitInline(std::string_view arg, std::string_view& name, std::string_view& value) {
    const size_t equals = arg.find('=');
    if (equals == std::string_view::npos || !arg.starts_with("--")) {
        name = arg;
        return false;
    }
    name = arg.substr(0, equals);
    value = arg.substr(equals + 1);
    return true;
}

// The value of an option at argv[i]: inline after "=" or the next argument.
std::string TakeValue(std::string_view name, bool hasInline, std::string_view inlineValue,
                      const std::vector<std::string>& args, size_t& i) {
    if (hasInline) return std::string(inlineValue);
    if (i + 1 >= args.size()) throw UsageError("option " + std::string(name) + " needs a value");
    ++i;
    return args[i];
}

std::string NonEmpty(std::string_view name, std::string value) {
    if (value.empty()) throw UsageError("option " + std::string(name) + " needs a value");
    return value;
}

// The common options whose value is a file path, which must not be empty.
constexpr std::pair<std::string_view, std::string CommonOptions::*> kPathOptions[] = {
    {"--plugin", &CommonOptions::pluginPath},
    {"--trace-log", &CommonOptions::traceLogPath},
    {"--error-log", &CommonOptions::errorLogPath},
};

// Applies a common option; false when `name` is none.
bool ApplyCommon(CommonOptions& options, std::string_view name, bool hasInline,
                 std::string_view inlineValue, const std::vector<std::string>& args, size_t& i) {
    if (name == "--help" || name == "-h") {
        options.help = true;
        return true;
    }
    if (name == "--json") {
        options.json = true;
        return true;
    }
    for (const auto& [option, path] : kPathOptions) {
        if (name != option) continue;
        options.*path = NonEmpty(name, TakeValue(name, hasInline, inlineValue, args, i));
        return true;
    }
    if (name == "--quit-after-ms") {
        options.quitAfterMs = ParseCount(name, TakeValue(name, hasInline, inlineValue, args, i));
        return true;
    }
    return false;
}

}  // namespace

ParsedArguments ParseArguments(std::vector<std::string> all) {
    ParsedArguments parsed;
    for (size_t i = 0; i < all.size(); ++i) {
        std::string_view name;
        std::string_view inlineValue;
        const bool hasInline = SplitInline(all[i], name, inlineValue);
        if (ApplyCommon(parsed.options, name, hasInline, inlineValue, all, i)) continue;
        if (parsed.command.empty() && !IsOption(all[i])) {
            parsed.command = all[i];
            continue;
        }
        if (parsed.command.empty()) throw UsageError("unknown option " + all[i]);
        parsed.args.push_back(all[i]);
    }
    return parsed;
}

bool TakeOption(std::vector<std::string>& args, std::string_view name, std::string& value) {
    for (size_t i = 0; i < args.size(); ++i) {
        std::string_view argName;
        std::string_view inlineValue;
        const bool hasInline = SplitInline(args[i], argName, inlineValue);
        if (argName != name) continue;
        const size_t first = i;
        value = TakeValue(name, hasInline, inlineValue, args, i);
        args.erase(args.begin() + static_cast<std::ptrdiff_t>(first),
                   args.begin() + static_cast<std::ptrdiff_t>(i) + 1);
        return true;
    }
    return false;
}

bool TakeFlag(std::vector<std::string>& args, std::string_view name) {
    const auto tail = std::remove(args.begin(), args.end(), name);
    const bool found = tail != args.end();
    args.erase(tail, args.end());
    return found;
}

void RequireArguments(const std::vector<std::string>& args, size_t min, size_t max) {
    for (const std::string& arg : args) {
        if (IsOption(arg)) throw UsageError("unknown option " + arg);
    }
    if (args.size() < min) throw UsageError("too few arguments");
    if (args.size() > max) throw UsageError("too many arguments");
}

int64_t ParseCount(std::string_view option, std::string_view text) {
    int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end || value < 0) {
        throw UsageError("option " + std::string(option) + " needs a whole number of at least 0, not '" +
                         std::string(text) + "'");
    }
    return value;
}

}  // namespace host
