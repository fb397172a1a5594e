// write and delete: tag jobs through Set("IDTags") and DeleteATag.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

#include "host/cli.h"
#include "host/commands.h"
#include "host/errors.h"
#include "host/picturetypes.h"
#include "host/plugin.h"
#include "host/session.h"
#include "host/tagblobwriter.h"
#include "host/text.h"
#include "host/writeinput.h"

namespace host {
namespace {

void DefineWrite(CLI::App& command, CommandArgs& args) {
    DefinePathArgument(command, args);
    command.add_option("--set", args.sets, "set a tag; a name given twice gets both values")
        ->type_name("NAME=VALUE")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--picture", args.pictures, "add a picture of TYPE (a name or number below)")
        ->type_name("TYPE=IMAGE[:DESC]")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--from-json", args.fromJson, "the tags of a JSON file, as `tags --json` prints them")
        ->type_name("FILE")
        ->check(NonEmpty());
    command.footer("\nTags are merged with what PATH has. Picture types:\n" + PictureTypeList());
}

TagList BuildTags(const CommandArgs& args) {
    TagList tags;
    for (const std::string& setting : args.sets) tags.AddSetting(setting);
    for (const std::string& picture : args.pictures) tags.AddPicture(picture);
    if (!args.fromJson.empty()) tags.AddFromJson(args.fromJson);
    if (tags.Entries().empty()) throw UsageError("nothing to write (give --set, --picture or --from-json)");
    if (HasApeTags(args.path)) tags.CheckApeKeys();
    return tags;
}

int RunWrite(CommandContext& context) {
    const std::string& path = context.args.path;
    const TagList tags = BuildTags(context.args);
    const std::string blob = WriteTagBlob(tags.Entries());
    Session session(context.options);
    const std::u16string widePath = Utf8ToUtf16(path);
    DecoderParam param{};
    param.text = widePath.c_str();
    param.data = blob.data();
    param.value = static_cast<int32_t>(blob.size());
    bool written = false;
    {
        const Decoder decoder(session.plugin(), session.CreateInfo());
        written = decoder.Set(u"IDTags", param) != 0;
    }
    if (!written) return session.Failed(path, "the plug-in could not write the tags");
    const std::vector<std::string> warnings = session.Warnings(path);
    if (context.options.json) {
        PrintJson({{"path", path}, {"written", true}, {"entries", tags.Entries().size()}, {"warnings", warnings}});
    } else {
        std::printf("Wrote %zu tag entries to %s\n", tags.Entries().size(), path.c_str());
    }
    return kExitOk;
}

void DefineDelete(CLI::App& command, CommandArgs& args) {
    DefinePathArgument(command, args);
    command.add_option("NAME", args.names, "a tag name or picture key to delete; none: every tag")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

// NUL-ended names behind each other, ended by an empty one; "[Empty]" stands
// for an empty name.
std::u16string MultiString(const std::vector<std::string>& names) {
    std::u16string block;
    for (const std::string& name : names) {
        block += name.empty() ? std::u16string(u"[Empty]") : Utf8ToUtf16(name);
        block += u'\0';
    }
    block += u'\0';
    return block;
}

int RunDelete(CommandContext& context) {
    const std::string& path = context.args.path;
    const std::vector<std::string>& names = context.args.names;
    const std::u16string block = MultiString(names);
    Session session(context.options);
    const std::u16string widePath = Utf8ToUtf16(path);
    bool deleted = false;
    {
        const Decoder decoder(session.plugin(), session.CreateInfo());
        deleted = decoder.DeleteATag(widePath.c_str(), names.empty() ? nullptr : block.c_str()) != 0;
    }
    if (!deleted) return session.Failed(path, "the plug-in could not delete the tags");
    const std::vector<std::string> warnings = session.Warnings(path);
    if (context.options.json) {
        PrintJson({{"path", path},
                   {"deleted", true},
                   {"names", names.empty() ? Json(nullptr) : Json(names)},
                   {"warnings", warnings}});
    } else {
        std::printf(names.empty() ? "Deleted all tags of %s\n" : "Deleted the named tags of %s\n", path.c_str());
    }
    return kExitOk;
}

}  // namespace

const Command kWriteCommand = {"write", "write tags into PATH (merged with what it has)", DefineWrite, RunWrite};
const Command kDeleteCommand = {"delete", "delete the named tags of PATH, or all of them", DefineDelete, RunDelete};

}  // namespace host
