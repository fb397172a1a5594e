#pragma once
// fdhost's command table. Each command lives in its own cmd_*.cpp file, which
// defines its row: name, summary, the options it adds to the command line and
// the function that runs it. A new command adds its row here and to
// AllCommands() in commands.cpp.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace CLI {
class App;
}

namespace host {

// JSON output keeps its keys in the order they are written.
using Json = nlohmann::ordered_json;

// Accepted before or after the command.
struct CommonOptions {
    std::string pluginPath;       // empty: the plug-in beside fdhost
    std::string traceLogPath;     // empty: no trace log
    std::string errorLogPath;     // empty: the plug-in's errors go to standard error only
    int64_t quitAfterMs = -1;     // below 0: never set the quit event
    bool json = false;
};

// What the commands take; each command fills the fields it defines.
struct CommandArgs {
    std::string path;
    std::string outPath;
    std::vector<std::string> names;      // delete
    std::vector<std::string> sets;       // write --set NAME=VALUE
    std::vector<std::string> pictures;   // write --picture TYPE=IMAGE[:DESCRIPTION]
    std::string fromJson;                // write --from-json
    bool raw = false;
    bool quiet = false;
    bool overwrite = false;
    int64_t startFrame = 0;
    int64_t frameLimit = -1;   // below 0: all
};

struct CommandContext {
    CommonOptions options;
    CommandArgs args;
};

struct Command {
    const char* name;
    const char* summary;    // one line for --help
    void (*define)(CLI::App& command, CommandArgs& args);   // its options and arguments
    int (*run)(CommandContext& context);                     // an ExitCode
};

extern const Command kCapsCommand;      // cmd_caps.cpp
extern const Command kCanTagCommand;    // cmd_caps.cpp
extern const Command kInfoCommand;      // cmd_info.cpp
extern const Command kTagsCommand;      // cmd_info.cpp
extern const Command kPicturesCommand;  // cmd_pictures.cpp
extern const Command kDecodeCommand;    // cmd_decode.cpp
extern const Command kWriteCommand;     // cmd_tags_write.cpp
extern const Command kDeleteCommand;    // cmd_tags_write.cpp

// Every command, in the order --help lists them.
std::span<const Command* const> AllCommands();

// The one argument of most commands: PATH, a file or URL.
void DefinePathArgument(CLI::App& command, CommandArgs& args);

// Prints one JSON document and a line end on standard output.
void PrintJson(const Json& document);

}  // namespace host
