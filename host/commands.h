#pragma once
// fdhost's command table. Each command lives in its own cmd_*.cpp file, which
// defines its row: name, usage line and the function that runs it. A new
// command adds its row here and to AllCommands() in commands.cpp.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/options.h"

namespace host {

struct CommandContext {
    CommonOptions options;
    std::vector<std::string> args;    // after the command name, common options removed
};

struct Command {
    const char* name;
    const char* usage;      // arguments after the name, e.g. "PATH [--json]"
    const char* summary;    // one line for --help
    int (*run)(CommandContext& context);   // an ExitCode
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
const Command* FindCommand(std::string_view name);

}  // namespace host
