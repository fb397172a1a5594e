// info and tags: Open a file as a host does before playing it, and show what
// the plug-in handed back: the format record and the two blobs.

#include <cstdio>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/base64.h"
#include "host/console.h"
#include "host/session.h"
#include "host/littleendian.h"
#include "host/openread.h"
#include "host/sha256.h"
#include "host/tagblob.h"
#include "host/text.h"

namespace host {
namespace {

Json FormatJson(const DecoderFormat& format) {
    const uint8_t* wave = format.wave;
    return {{"format_tag", U16At(wave)},
            {"channels", U16At(wave + 2)},
            {"sample_rate", U32At(wave + 4)},
            {"avg_bytes_per_sec", U32At(wave + 8)},
            {"block_align", U16At(wave + 12)},
            {"bits_per_sample", U16At(wave + 14)},
            // Copies: the record is packed, its fields can't be bound.
            {"bitrate", uint32_t{format.bitrate}},
            {"duration_ms", int64_t{format.durationMs}}};
}

// `withData`: binary data inline as base64, so that the output can be fed
// back to `write --from-json`.
Json EntriesJson(const std::vector<BlobEntry>& entries, bool withData) {
    Json list = Json::array();
    for (const BlobEntry& entry : entries) {
        Json item = {{"name", Utf16ToUtf8(entry.name)},
                     {"value", Utf16ToUtf8(entry.value)},
                     {"data_size", entry.data.size()},
                     {"data_sha256", nullptr}};
        if (!entry.data.empty()) {
            item["data_sha256"] = Sha256Hex(entry.data.data(), entry.data.size());
            if (withData) item["data_base64"] = Base64Encode(entry.data);
        }
        list.push_back(std::move(item));
    }
    return list;
}

void PrintFormatText(const DecoderFormat& format) {
    const uint8_t* wave = format.wave;
    std::printf("Format:\n");
    std::printf("  format tag         0x%04X\n", U16At(wave));
    std::printf("  channels           %u\n", U16At(wave + 2));
    std::printf("  sample rate        %u Hz\n", U32At(wave + 4));
    std::printf("  bytes per second   %u\n", U32At(wave + 8));
    std::printf("  block align        %u\n", U16At(wave + 12));
    std::printf("  bits per sample    %u\n", U16At(wave + 14));
    std::printf("  bitrate            %u b/s\n", format.bitrate);
    std::printf("  duration           %lld ms\n", static_cast<long long>(format.durationMs));
}

// A value's further lines (several values, or a text of several lines) stand
// below its first, indented to the same column.
std::u16string IndentedValue(const std::u16string& value, size_t column) {
    std::u16string out;
    for (char16_t c : value) {
        if (c == u'\r' || c == u'\n') {
            out += u'\n';
            out.append(column, u' ');
            continue;
        }
        out += c;
    }
    return out;
}

// On a terminal, control characters in a tag are shown, not obeyed.
std::string Shown(std::u16string_view text) {
    std::string utf8 = Utf16ToUtf8(text);
    return console::StandardOutputIsTerminal() ? EscapeControls(utf8) : utf8;
}

void PrintEntriesText(const char* title, const std::vector<BlobEntry>& entries) {
    std::printf("%s:%s\n", title, entries.empty() ? " none" : "");
    for (const BlobEntry& entry : entries) {
        const std::string name = Shown(entry.name);
        std::printf("  %s = ", name.c_str());
        const size_t column = 2 + name.size() + 3;
        if (!entry.value.empty()) std::printf("%s", Shown(IndentedValue(entry.value, column)).c_str());
        if (!entry.data.empty()) {
            std::printf("%s[%zu bytes, sha256 %s]", entry.value.empty() ? "" : " ", entry.data.size(),
                        Sha256Hex(entry.data.data(), entry.data.size()).c_str());
        }
        std::printf("\n");
    }
}

int RunInfo(CommandContext& context) {
    const std::string& path = context.args.path;
    Session session(context.options);
    OpenResult result;
    if (!OpenAndRead(session, context.options, path, kOpenWantTags | kOpenWantInfo, result)) {
        return OpenFailed(session, path);
    }
    const std::vector<std::string> warnings = session.Warnings(path);
    if (context.options.json) {
        PrintJson({{"path", path},
                   {"format", FormatJson(result.format)},
                   {"tags", EntriesJson(result.tags, false)},
                   {"info", EntriesJson(result.info, false)},
                   {"warnings", warnings}});
        return kExitOk;
    }
    PrintFormatText(result.format);
    PrintEntriesText("Tags", result.tags);
    PrintEntriesText("Information", result.info);
    return kExitOk;
}

int RunTags(CommandContext& context) {
    const std::string& path = context.args.path;
    Session session(context.options);
    OpenResult result;
    if (!OpenAndRead(session, context.options, path, kOpenWantTags, result)) return OpenFailed(session, path);
    const std::vector<std::string> warnings = session.Warnings(path);
    if (context.options.json) {
        PrintJson({{"path", path}, {"tags", EntriesJson(result.tags, true)}, {"warnings", warnings}});
        return kExitOk;
    }
    PrintEntriesText("Tags", result.tags);
    return kExitOk;
}

}  // namespace

const Command kInfoCommand = {"info", "show the format, tags and technical information of PATH",
                              DefinePathArgument, RunInfo};
const Command kTagsCommand = {"tags", "show the tags of PATH (JSON: pictures inline, for write --from-json)",
                              DefinePathArgument, RunTags};

}  // namespace host
