#pragma once
// What every command that talks to the plug-in needs: the loaded library and
// the two log files it writes to, opened from the common options.

#include <string>

#include "codecs/decoders/ffmpeg/records.h"
#include "host/logfile.h"
#include "host/options.h"
#include "host/plugin.h"

namespace host {

class Session {
public:
    // Opens the logs and loads the plug-in; throws HostError on failure.
    explicit Session(const CommonOptions& options);

    const Plugin& plugin() const { return plugin_; }
    DecoderCreateInfo CreateInfo() const;

private:
    LogFile errorLog_;
    LogFile traceLog_;
    Plugin plugin_;
};

// The plug-in fdhost uses without --plugin: beside it in a build tree
// (<dir>/plugins/), else in the install tree (<dir>/../lib/fdhost/plugins/).
std::string DefaultPluginPath();

// For a failure message: the error log that explains it, or how to get one.
std::string WhereToSeeWhy(const CommonOptions& options);

}  // namespace host
