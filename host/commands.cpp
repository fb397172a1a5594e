#include "host/commands.h"

#include <array>

namespace host {

std::span<const Command* const> AllCommands() {
    static const std::array<const Command*, 8> table = {
        &kCapsCommand,   &kCanTagCommand, &kInfoCommand,   &kTagsCommand, &kPicturesCommand,
        &kDecodeCommand, &kWriteCommand, &kDeleteCommand,
    };
    return table;
}

const Command* FindCommand(std::string_view name) {
    for (const Command* command : AllCommands()) {
        if (name == command->name) return command;
    }
    return nullptr;
}

}  // namespace host
