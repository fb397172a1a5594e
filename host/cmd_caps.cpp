// caps and can-tag: what the plug-in decodes and whether it can tag a file,
// asked through Get as a host asks at start-up.

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/plugin.h"
#include "host/session.h"
#include "host/text.h"

namespace host {
namespace {

// A host enumerates a table from row 0 until Get gives 0; this bound only
// keeps a faulty plug-in from holding fdhost in the loop for ever.
constexpr uint32_t kMaxRows = 100000;

struct Capabilities {
    std::string description;
    std::vector<std::pair<std::string, std::string>> decodes;
    std::vector<std::string> streaming;
};

Capabilities AskCapabilities(const Decoder& decoder) {
    Capabilities caps;
    DecoderParam param{};
    if (decoder.Get(u"Decoder Description", param) != 0) {
        caps.description = Utf16ToUtf8(WideView(param.text));
    }
    for (uint32_t row = 0; row < kMaxRows; ++row) {
        param = DecoderParam{};
        param.index = row;
        if (decoder.Get(u"Decodes", param) == 0) break;
        caps.decodes.emplace_back(Utf16ToUtf8(WideView(param.text)), Utf16ToUtf8(WideView(param.text2)));
    }
    for (uint32_t row = 0; row < kMaxRows; ++row) {
        param = DecoderParam{};
        param.index = row;
        if (decoder.Get(u"StreamingDecodes", param) == 0) break;
        caps.streaming.push_back(Utf16ToUtf8(WideView(param.text)));
    }
    return caps;
}

void PrintCapsJson(const Capabilities& caps, const std::vector<std::string>& warnings) {
    Json decodes = Json::array();
    for (const auto& [extension, description] : caps.decodes) decodes.push_back({extension, description});
    PrintJson({{"description", caps.description},
               {"decodes", decodes},
               {"streaming", caps.streaming},
               {"warnings", warnings}});
}

void PrintCapsText(const Capabilities& caps) {
    std::printf("%s\n\nDecodes:\n", caps.description.c_str());
    for (const auto& [extension, description] : caps.decodes) {
        std::printf("  %-8s %s\n", extension.c_str(), description.c_str());
    }
    std::printf("\nStreams:\n");
    for (const std::string& mime : caps.streaming) std::printf("  %s\n", mime.c_str());
}

void DefineCaps(CLI::App& /*command*/, CommandArgs& /*args*/) {}

int RunCaps(CommandContext& context) {
    Session session(context.options);
    Capabilities caps;
    {
        const Decoder decoder(session.plugin(), session.CreateInfo());
        caps = AskCapabilities(decoder);
    }
    const std::vector<std::string> warnings = session.Warnings("caps");
    if (context.options.json) {
        PrintCapsJson(caps, warnings);
    } else {
        PrintCapsText(caps);
    }
    return kExitOk;
}

int RunCanTag(CommandContext& context) {
    const std::string& path = context.args.path;
    const std::u16string widePath = Utf8ToUtf16(path);
    Session session(context.options);
    DecoderParam param{};
    param.text = widePath.c_str();
    bool answered = false;
    {
        const Decoder decoder(session.plugin(), session.CreateInfo());
        answered = decoder.Get(u"CanWriteIDTags", param) != 0;
    }
    if (!answered) return session.Failed(path, "the plug-in could not answer");
    const std::vector<std::string> warnings = session.Warnings(path);
    const int value = param.value != 0 ? 1 : 0;
    if (context.options.json) {
        PrintJson({{"path", path}, {"value", value}, {"warnings", warnings}});
    } else {
        std::printf("%d\n", value);
    }
    return kExitOk;
}

}  // namespace

const Command kCapsCommand = {"caps", "list the extensions and stream types the plug-in decodes", DefineCaps,
                               RunCaps};
const Command kCanTagCommand = {"can-tag", "print 1 when the plug-in can write tags of PATH, else 0", DefinePathArgument,
                                RunCanTag};

}  // namespace host
