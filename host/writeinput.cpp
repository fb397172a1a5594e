#include "host/writeinput.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "host/base64.h"
#include "host/errors.h"
#include "host/picturetypes.h"
#include "host/text.h"

namespace host {
namespace {

// A file named on the command line: a directory, a missing or an empty file
// is a mistake of the command, not something to store.
std::string ReadArgumentFile(const std::string& path, const std::string& what) {
    const std::filesystem::path file = Utf8Path(path);
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) throw UsageError(what + " " + path + " is no file");
    std::ifstream in(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (!in || in.bad()) throw UsageError("cannot read the " + what + " " + path);
    if (bytes.str().empty()) throw UsageError(what + " " + path + " is empty");
    return bytes.str();
}

std::string StringMember(const nlohmann::json& object, const char* name, const std::string& where) {
    const auto member = object.find(name);
    if (member == object.end() || member->is_null()) return {};
    if (!member->is_string()) throw UsageError(where + ": \"" + name + "\" must be a string");
    return member->get<std::string>();
}

}  // namespace

void TagList::AddText(const std::string& name, const std::string& value) {
    std::u16string wideName = Utf8ToUtf16(name);
    std::u16string wideValue = Utf8ToUtf16(value);
    for (BlobEntry& entry : entries_) {
        if (entry.data.empty() && EqualsNoCase(entry.name, wideName)) {
            entry.value += u'\r';
            entry.value += wideValue;
            return;
        }
    }
    entries_.push_back({std::move(wideName), std::move(wideValue), {}});
}

void TagList::AddBinary(const std::string& name, const std::string& value, std::string data) {
    entries_.push_back({Utf8ToUtf16(name), Utf8ToUtf16(value), std::move(data)});
}

void TagList::AddSetting(const std::string& setting) {
    const size_t equals = setting.find('=');
    if (equals == std::string::npos || equals == 0) throw UsageError("expected NAME=VALUE, got '" + setting + "'");
    AddText(setting.substr(0, equals), setting.substr(equals + 1));
}

void TagList::AddPicture(const std::string& argument) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos) throw UsageError("expected TYPE=IMAGE[:DESCRIPTION], got '" + argument + "'");
    const std::string type = PictureTypeName(argument.substr(0, equals));
    std::string path = argument.substr(equals + 1);
    std::string description;
    std::error_code error;
    const size_t colon = path.find(':');
    if (!std::filesystem::exists(Utf8Path(path), error) && colon != std::string::npos) {
        description = path.substr(colon + 1);
        path.resize(colon);
    }
    if (path.empty()) throw UsageError("no image file in '" + argument + "'");
    std::string image = ReadArgumentFile(path, "the picture");
    // Pictures are numbered from 1 in the order given.
    std::string key = "_albumart_" + std::to_string(++pictures_) + "_" + type;
    if (!description.empty()) key += "<subdesc>" + description;
    AddBinary(key, "", std::move(image));
}

void TagList::AddFromJson(const std::string& jsonPath) {
    const nlohmann::json document = nlohmann::json::parse(ReadArgumentFile(jsonPath, "the JSON file"), nullptr, false);
    if (document.is_discarded()) throw UsageError(jsonPath + " is no JSON");
    const nlohmann::json* tags = &document;
    if (document.is_object() && document.contains("tags")) tags = &document["tags"];
    if (!tags->is_array()) throw UsageError(jsonPath + ": expected an array of tags, or an object with \"tags\"");
    const std::filesystem::path folder = Utf8Path(jsonPath).parent_path();
    for (const nlohmann::json& item : *tags) {
        if (!item.is_object()) throw UsageError(jsonPath + ": every tag must be an object");
        const std::string name = StringMember(item, "name", jsonPath);
        if (name.empty()) throw UsageError(jsonPath + ": a tag without a \"name\"");
        const std::string value = StringMember(item, "value", jsonPath);
        const std::string inlineData = StringMember(item, "data_base64", jsonPath);
        const std::string dataFile = StringMember(item, "data_file", jsonPath);
        if (!inlineData.empty()) {
            std::optional<std::string> data = Base64Decode(inlineData);
            if (!data) throw UsageError(jsonPath + ": \"data_base64\" of " + name + " is no base64");
            AddBinary(name, value, std::move(*data));
        } else if (!dataFile.empty()) {
            std::filesystem::path data = Utf8Path(dataFile);
            if (data.is_relative()) data = folder / data;
            AddBinary(name, value, ReadArgumentFile(PathUtf8(data), "the data file"));
        } else {
            AddText(name, value);
        }
    }
}

void TagList::CheckApeKeys() const {
    static constexpr std::u16string_view kReserved[] = {u"ID3", u"TAG", u"OggS", u"MP+"};
    for (const BlobEntry& entry : entries_) {
        // Pictures become "Cover Art (front)" or "(back)", "_crc" becomes "CRC".
        if (StartsWithNoCase(entry.name, u"_albumart_") || EqualsNoCase(entry.name, u"_crc")) continue;
        const std::string name = Utf16ToUtf8(entry.name);
        bool printable = entry.name.size() >= 2 && entry.name.size() <= 255;
        for (const char16_t c : entry.name) printable = printable && c >= 0x20 && c <= 0x7E;
        for (const std::u16string_view reserved : kReserved) printable = printable && !EqualsNoCase(entry.name, reserved);
        if (!printable) {
            throw UsageError("'" + EscapeControls(name) +
                             "' cannot be an APE item key (2 to 255 characters from 0x20 to 0x7E, not ID3, TAG, OggS "
                             "or MP+)");
        }
    }
}

bool HasApeTags(const std::string& path) {
    static constexpr std::u16string_view kExtensions[] = {u".tak", u".tta", u".dts", u".dtshd"};
    const std::u16string wide = Utf8ToUtf16(path);
    for (const std::u16string_view extension : kExtensions) {
        if (wide.size() >= extension.size() &&
            EqualsNoCase(std::u16string_view(wide).substr(wide.size() - extension.size()), extension)) {
            return true;
        }
    }
    return false;
}

}  // namespace host
