// write and delete: tag jobs through Set("IDTags") and DeleteATag.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/json.h"
#include "host/jsonread.h"
#include "host/picturetypes.h"
#include "host/plugin.h"
#include "host/session.h"
#include "host/tagblob.h"
#include "host/tagblobwriter.h"
#include "host/text.h"

namespace host {
namespace {

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(Utf8Path(path), std::ios::binary);
    if (!in) throw HostError("cannot read " + path);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (in.bad()) throw HostError("cannot read " + path);
    return bytes.str();
}

bool SameNameNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    auto fold = [](char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; };
    for (size_t i = 0; i < a.size(); ++i) {
        if (fold(a[i]) != fold(b[i])) return false;
    }
    return true;
}

// The collection a write sends, in the order the command line gives it.
class TagList {
public:
    // A second value for a name joins the first with a carriage return.
    void AddText(const std::string& name, const std::string& value) {
        std::u16string wideName = Utf8ToUtf16(name);
        std::u16string wideValue = Utf8ToUtf16(value);
        for (BlobEntry& entry : entries_) {
            if (entry.data.empty() && SameNameNoCase(entry.name, wideName)) {
                entry.value += u'\r';
                entry.value += wideValue;
                return;
            }
        }
        entries_.push_back({std::move(wideName), std::move(wideValue), {}});
    }

    void AddBinary(const std::string& name, const std::string& value, std::string data) {
        entries_.push_back({Utf8ToUtf16(name), Utf8ToUtf16(value), std::move(data)});
    }

    // Pictures are numbered from 1 in the order given.
    void AddPicture(const std::string& type, const std::string& description, std::string image) {
        std::string key = "_albumart_" + std::to_string(++pictures_) + "_" + type;
        if (!description.empty()) key += "<subdesc>" + description;
        AddBinary(key, "", std::move(image));
    }

    const std::vector<BlobEntry>& Entries() const { return entries_; }

private:
    std::vector<BlobEntry> entries_;
    int pictures_ = 0;
};

void AddSetting(TagList& tags, const std::string& setting) {
    size_t equals = setting.find('=');
    if (equals == std::string::npos || equals == 0) throw UsageError("expected NAME=VALUE, got '" + setting + "'");
    tags.AddText(setting.substr(0, equals), setting.substr(equals + 1));
}

// TYPE=IMAGEPATH[:DESCRIPTION]. A path that exists whole takes the colon with it.
void AddPictureArgument(TagList& tags, const std::string& argument) {
    size_t equals = argument.find('=');
    if (equals == std::string::npos) throw UsageError("expected TYPE=IMAGEPATH[:DESCRIPTION], got '" + argument + "'");
    std::string type = PictureTypeName(argument.substr(0, equals));
    std::string path = argument.substr(equals + 1);
    std::string description;
    std::error_code error;
    size_t colon = path.find(':');
    if (!std::filesystem::is_regular_file(Utf8Path(path), error) && colon != std::string::npos) {
        description = path.substr(colon + 1);
        path.resize(colon);
    }
    if (path.empty()) throw UsageError("no image file in '" + argument + "'");
    tags.AddPicture(type, description, ReadWholeFile(path));
}

const std::string& StringMember(const JsonValue& object, const char* name, const std::string& fallback) {
    const JsonValue* member = object.Member(name);
    if (!member || member->kind == JsonValue::Kind::kNull) return fallback;
    if (member->kind != JsonValue::Kind::kString) throw UsageError(std::string("\"") + name + "\" must be a string");
    return member->text;
}

// [{"name": str, "value": str, "data_file": optional path}]; a relative data
// file is found beside the JSON file.
void AddFromJson(TagList& tags, const std::string& jsonPath) {
    JsonValue document = ParseJson(ReadWholeFile(jsonPath));
    if (document.kind != JsonValue::Kind::kArray) throw UsageError(jsonPath + ": expected an array of tags");
    const std::filesystem::path folder = Utf8Path(jsonPath).parent_path();
    const std::string none;
    for (const JsonValue& item : document.items) {
        if (item.kind != JsonValue::Kind::kObject) throw UsageError(jsonPath + ": every tag must be an object");
        const std::string& name = StringMember(item, "name", none);
        if (name.empty()) throw UsageError(jsonPath + ": a tag without a \"name\"");
        const std::string& value = StringMember(item, "value", none);
        const std::string& dataFile = StringMember(item, "data_file", none);
        if (dataFile.empty()) {
            tags.AddText(name, value);
            continue;
        }
        std::filesystem::path data = Utf8Path(dataFile);
        if (data.is_relative()) data = folder / data;
        tags.AddBinary(name, value, ReadWholeFile(PathUtf8(data)));
    }
}

// Takes the value of "--name VALUE" or "--name=VALUE" at args[i]; false when
// args[i] is another argument.
bool TakeValue(const std::vector<std::string>& args, size_t& i, const std::string& name, std::string& value) {
    const std::string& arg = args[i];
    if (arg == name) {
        if (i + 1 >= args.size()) throw UsageError(name + " needs a value");
        value = args[++i];
        return true;
    }
    if (arg.rfind(name + "=", 0) == 0) {
        value = arg.substr(name.size() + 1);
        return true;
    }
    return false;
}

int Failed(const char* what, const std::string& path) {
    std::fprintf(stderr, "fdhost: the plug-in could not %s %s (its error log tells why)\n", what, path.c_str());
    return kExitFailed;
}

int RunWrite(CommandContext& context) {
    std::string path;
    TagList tags;
    const std::vector<std::string>& args = context.args;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string value;
        if (TakeValue(args, i, "--set", value)) {
            AddSetting(tags, value);
        } else if (TakeValue(args, i, "--picture", value)) {
            AddPictureArgument(tags, value);
        } else if (TakeValue(args, i, "--from-json", value)) {
            AddFromJson(tags, value);
        } else if (args[i].rfind("--", 0) == 0) {
            throw UsageError("unknown option " + args[i]);
        } else if (path.empty()) {
            path = args[i];
        } else {
            AddSetting(tags, args[i]);
        }
    }
    if (path.empty()) throw UsageError("no file given");

    const std::string blob = WriteTagBlob(tags.Entries());
    const Session session(context.options);
    const Decoder decoder(session.plugin(), session.CreateInfo());
    const std::u16string widePath = Utf8ToUtf16(path);
    DecoderParam param{};
    param.text = widePath.c_str();
    param.data = blob.data();
    param.value = static_cast<int32_t>(blob.size());
    const bool written = decoder.Set(u"IDTags", param) != 0;
    if (context.options.json) {
        JsonWriter json;
        json.BeginObject().Key("path").String(path).Key("written").Bool(written);
        json.Key("entries").UInt(tags.Entries().size()).EndObject();
        std::printf("%s\n", json.Text().c_str());
    } else if (written) {
        std::printf("Wrote %zu tag entries to %s\n", tags.Entries().size(), path.c_str());
    }
    return written ? kExitOk : Failed("write the tags of", path);
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
    for (const std::string& arg : context.args) {
        if (arg.rfind("--", 0) == 0) throw UsageError("unknown option " + arg);
    }
    if (context.args.empty()) throw UsageError("no file given");
    const std::string& path = context.args[0];
    const std::vector<std::string> names(context.args.begin() + 1, context.args.end());
    const std::u16string block = MultiString(names);

    const Session session(context.options);
    const Decoder decoder(session.plugin(), session.CreateInfo());
    const std::u16string widePath = Utf8ToUtf16(path);
    const bool deleted = decoder.DeleteATag(widePath.c_str(), names.empty() ? nullptr : block.c_str()) != 0;
    if (context.options.json) {
        JsonWriter json;
        json.BeginObject().Key("path").String(path).Key("deleted").Bool(deleted).Key("names");
        if (names.empty()) {
            json.Null();
        } else {
            json.BeginArray();
            for (const std::string& name : names) json.String(name);
            json.EndArray();
        }
        json.EndObject();
        std::printf("%s\n", json.Text().c_str());
    } else if (deleted) {
        std::printf(names.empty() ? "Deleted all tags of %s\n" : "Deleted the named tags of %s\n", path.c_str());
    }
    return deleted ? kExitOk : Failed("delete the tags of", path);
}

}  // namespace

const Command kWriteCommand = {
    "write", "PATH [--set NAME=VALUE]... [--picture TYPE=IMAGE[:DESCRIPTION]]... [--from-json TAGS.json] [--json]",
    "write tags into PATH (merged with what it has)", RunWrite};
const Command kDeleteCommand = {"delete", "PATH [NAME...] [--json]",
                                "delete the named tags of PATH, or all of them", RunDelete};

}  // namespace host
