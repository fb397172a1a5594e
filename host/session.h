#pragma once
// What every command that talks to the plug-in needs: the loaded library and
// the two logs it writes to. The error log is fdhost's own: what the plug-in
// writes there is relayed to standard error, as the reason of a failure or
// as warnings of a success, and copied to --error-log when that is given.

#include <fstream>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/records.h"
#include "host/commands.h"
#include "host/logfile.h"
#include "host/plugin.h"

namespace host {

class Session {
public:
    // Opens the logs and loads the plug-in; throws HostError on failure.
    explicit Session(const CommonOptions& options);

    const Plugin& plugin() const { return plugin_; }
    DecoderCreateInfo CreateInfo() const;

    // A failure: every line the plug-in logged as "fdhost: SUBJECT: line",
    // or "fdhost: SUBJECT: fallback" when it logged none. Returns kExitFailed.
    int Failed(const std::string& subject, const std::string& fallback);
    // A success: what the plug-in logged are warnings, printed on standard
    // error and returned for the JSON output.
    std::vector<std::string> Warnings(const std::string& subject);

private:
    // The lines logged since the last call, without their function labels.
    std::vector<std::string> TakeLogLines();

    LogFile errorLog_;
    LogFile traceLog_;
    std::ofstream errorCopy_;
    uint64_t relayed_ = 0;
    Plugin plugin_;
};

// The plug-in's log lines (UTF-16LE, CR LF, "  [label]" at the end) as UTF-8
// lines without the label. A last line without its end counts too.
std::vector<std::string> LogLines(const std::string& utf16le);

// The plug-in fdhost uses without --plugin: beside it in a build tree
// (<dir>/plugins/), else in the install tree (<dir>/../lib/fdhost/plugins/).
std::string DefaultPluginPath();

}  // namespace host
