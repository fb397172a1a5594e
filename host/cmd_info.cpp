// info and tags: Open a file as a host does before playing it, and show what
// the plug-in handed back: the format record and the two blobs.

#include <cstdio>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/json.h"
#include "host/littleendian.h"
#include "host/openread.h"
#include "host/sha256.h"
#include "host/tagblob.h"
#include "host/text.h"

namespace host {
namespace {

void FormatJson(JsonWriter& json, const DecoderFormat& format) {
    const uint8_t* wave = format.wave;
    json.BeginObject();
    json.Key("format_tag").UInt(U16At(wave));
    json.Key("channels").UInt(U16At(wave + 2));
    json.Key("sample_rate").UInt(U32At(wave + 4));
    json.Key("avg_bytes_per_sec").UInt(U32At(wave + 8));
    json.Key("block_align").UInt(U16At(wave + 12));
    json.Key("bits_per_sample").UInt(U16At(wave + 14));
    json.Key("bitrate").UInt(format.bitrate);
    json.Key("duration_ms").Int(format.durationMs);
    json.EndObject();
}

void EntriesJson(JsonWriter& json, const std::vector<BlobEntry>& entries) {
    json.BeginArray();
    for (const BlobEntry& entry : entries) {
        json.BeginObject();
        json.Key("name").String(std::u16string_view(entry.name));
        json.Key("value").String(std::u16string_view(entry.value));
        json.Key("data_size").UInt(entry.data.size());
        json.Key("data_sha256");
        if (entry.data.empty()) {
            json.Null();
        } else {
            json.String(Sha256Hex(entry.data.data(), entry.data.size()));
        }
        json.EndObject();
    }
    json.EndArray();
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
std::string IndentedValue(const std::string& value, size_t column) {
    std::string out;
    for (char c : value) {
        if (c == '\r' || c == '\n') {
            out += '\n';
            out.append(column, ' ');
            continue;
        }
        out += c;
    }
    return out;
}

void PrintEntriesText(const char* title, const std::vector<BlobEntry>& entries) {
    std::printf("%s:%s\n", title, entries.empty() ? " none" : "");
    for (const BlobEntry& entry : entries) {
        const std::string name = Utf16ToUtf8(entry.name);
        std::printf("  %s = ", name.c_str());
        const size_t column = 2 + name.size() + 3;
        if (!entry.value.empty()) std::printf("%s", IndentedValue(Utf16ToUtf8(entry.value), column).c_str());
        if (!entry.data.empty()) {
            std::printf("%s[%zu bytes, sha256 %s]", entry.value.empty() ? "" : " ", entry.data.size(),
                        Sha256Hex(entry.data.data(), entry.data.size()).c_str());
        }
        std::printf("\n");
    }
}

int RunInfo(CommandContext& context) {
    RequireArguments(context.args, 1, 1);
    const std::string& path = context.args[0];
    OpenResult result;
    if (!OpenAndRead(context, path, kOpenWantTags | kOpenWantInfo, result)) return OpenFailed(context.options, path);
    if (context.options.json) {
        JsonWriter json;
        json.BeginObject();
        json.Key("format");
        FormatJson(json, result.format);
        json.Key("tags");
        EntriesJson(json, result.tags);
        json.Key("info");
        EntriesJson(json, result.info);
        json.EndObject();
        std::printf("%s\n", json.Text().c_str());
        return kExitOk;
    }
    PrintFormatText(result.format);
    PrintEntriesText("Tags", result.tags);
    PrintEntriesText("Information", result.info);
    return kExitOk;
}

int RunTags(CommandContext& context) {
    RequireArguments(context.args, 1, 1);
    const std::string& path = context.args[0];
    OpenResult result;
    if (!OpenAndRead(context, path, kOpenWantTags, result)) return OpenFailed(context.options, path);
    if (context.options.json) {
        JsonWriter json;
        EntriesJson(json, result.tags);
        std::printf("%s\n", json.Text().c_str());
        return kExitOk;
    }
    PrintEntriesText("Tags", result.tags);
    return kExitOk;
}

}  // namespace

const Command kInfoCommand = {"info", "PATH [--json]",
                              "show the format, tags and technical information of PATH", RunInfo};
const Command kTagsCommand = {"tags", "PATH [--json]", "show the tags of PATH", RunTags};

}  // namespace host
