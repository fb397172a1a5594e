// caps and can-tag: what the plug-in decodes and whether it can tag a file,
// asked through Get as a host asks at start-up.

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/json.h"
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

void PrintCapsJson(const Capabilities& caps) {
    JsonWriter json;
    json.BeginObject().Key("description").String(caps.description);
    json.Key("decodes").BeginArray();
    for (const auto& [extension, description] : caps.decodes) {
        json.BeginArray().String(extension).String(description).EndArray();
    }
    json.EndArray();
    json.Key("streaming").BeginArray();
    for (const std::string& mime : caps.streaming) json.String(mime);
    json.EndArray().EndObject();
    std::printf("%s\n", json.Text().c_str());
}

void PrintCapsText(const Capabilities& caps) {
    std::printf("%s\n\nDecodes:\n", caps.description.c_str());
    for (const auto& [extension, description] : caps.decodes) {
        std::printf("  %-8s %s\n", extension.c_str(), description.c_str());
    }
    std::printf("\nStreams:\n");
    for (const std::string& mime : caps.streaming) std::printf("  %s\n", mime.c_str());
}

int RunCaps(CommandContext& context) {
    RequireArguments(context.args, 0, 0);
    const Session session(context.options);
    const Decoder decoder(session.plugin(), session.CreateInfo());
    const Capabilities caps = AskCapabilities(decoder);
    if (context.options.json) {
        PrintCapsJson(caps);
    } else {
        PrintCapsText(caps);
    }
    return kExitOk;
}

int RunCanTag(CommandContext& context) {
    RequireArguments(context.args, 1, 1);
    const std::string& path = context.args[0];
    const std::u16string widePath = Utf8ToUtf16(path);
    const Session session(context.options);
    const Decoder decoder(session.plugin(), session.CreateInfo());
    DecoderParam param{};
    param.text = widePath.c_str();
    if (decoder.Get(u"CanWriteIDTags", param) == 0) {
        std::fprintf(stderr, "fdhost: the plug-in could not answer for %s\n", path.c_str());
        return kExitFailed;
    }
    const int value = param.value != 0 ? 1 : 0;
    if (context.options.json) {
        JsonWriter json;
        json.BeginObject().Key("path").String(path).Key("value").Int(value).EndObject();
        std::printf("%s\n", json.Text().c_str());
    } else {
        std::printf("%d\n", value);
    }
    return kExitOk;
}

}  // namespace

const Command kCapsCommand = {
    "caps", "[--json]", "list the extensions and stream types the plug-in decodes", RunCaps};
const Command kCanTagCommand = {
    "can-tag", "PATH [--json]", "tell whether the plug-in can write tags of PATH (1) or not (0)",
    RunCanTag};

}  // namespace host
