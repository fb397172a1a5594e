#include "host/commands.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstdio>

namespace host {

std::span<const Command* const> AllCommands() {
    static const std::array<const Command*, 8> table = {
        &kCapsCommand,   &kCanTagCommand, &kInfoCommand,   &kTagsCommand, &kPicturesCommand,
        &kDecodeCommand, &kWriteCommand, &kDeleteCommand,
    };
    return table;
}

void DefinePathArgument(CLI::App& command, CommandArgs& args) {
    command.add_option("PATH", args.path, "the file or URL")->required();
}

void PrintJson(const Json& document) {
    // Text from files may hold bytes that are no UTF-8: they become U+FFFD.
    const std::string text = document.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::printf("%s\n", text.c_str());
}

}  // namespace host
