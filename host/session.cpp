#include "host/session.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "host/errors.h"
#include "host/text.h"

#ifndef FD_HOST_INSTALL_PLUGIN_DIR
#define FD_HOST_INSTALL_PLUGIN_DIR "../lib/fdhost/plugins"
#endif

namespace host {
namespace {

Plugin LoadPlugin(const CommonOptions& options) {
    if (!options.pluginPath.empty()) return Plugin(options.pluginPath);
    return Plugin(DefaultPluginPath());
}

}  // namespace

Session::Session(const CommonOptions& options)
    : errorLog_(options.errorLogPath.empty() ? LogFile() : LogFile(options.errorLogPath)),
      traceLog_(options.traceLogPath.empty() ? LogFile() : LogFile(options.traceLogPath)),
      plugin_(LoadPlugin(options)) {}

DecoderCreateInfo Session::CreateInfo() const {
    DecoderCreateInfo info{};
    info.errorLog = errorLog_.Sink();
    info.traceLog = traceLog_.Sink();
    return info;
}

std::string DefaultPluginPath() {
    const std::string exe = ExecutablePath();
    if (exe.empty()) throw HostError("cannot find fdhost's own folder; give --plugin PATH");
    const std::filesystem::path dir = Utf8Path(exe).parent_path();
    const std::filesystem::path inBuildTree = dir / "plugins" / PluginFileName();
    std::error_code error;
    if (std::filesystem::exists(inBuildTree, error)) return PathUtf8(inBuildTree);
    return PathUtf8((dir / FD_HOST_INSTALL_PLUGIN_DIR / PluginFileName()).lexically_normal());
}

std::string WhereToSeeWhy(const CommonOptions& options) {
    if (options.errorLogPath.empty()) return "give --error-log FILE to see why";
    return "its error log " + options.errorLogPath + " tells why";
}

}  // namespace host
