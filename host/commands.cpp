#include "host/commands.h"

#include <array>

namespace host {

std::span<const Command* const> AllCommands() {
    static const std::array<const Command*, 7> table = {
        &kCapsCommand, &kCanTagCommand, &kInfoCommand,  &kTagsCommand,
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
