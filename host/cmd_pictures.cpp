// pictures: writes every picture among a file's tags to a folder, one file
// each, named after its art key with the extension of its detected type.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/json.h"
#include "host/openread.h"
#include "host/text.h"
#include "image/imageinfo.h"

namespace host {
namespace {

struct SavedPicture {
    std::string path;
    std::string key;
    ImageInfo info;
    size_t bytes = 0;
};

bool IsArtKey(const std::u16string& name) {
    static constexpr std::u16string_view kPrefix = u"_albumart_";
    if (name.size() < kPrefix.size()) return false;
    for (size_t i = 0; i < kPrefix.size(); ++i) {
        char16_t c = name[i];
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
        if (c != kPrefix[i]) return false;
    }
    return true;
}

// What a file name can't hold becomes "_".
std::string FileNameOf(const std::string& key) {
    std::string name = key;
    for (char& c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 32 || c == '/' || c == '\\' || c == ':' || c == '<' || c == '>' || c == '"' || c == '|' ||
            c == '?' || c == '*') {
            c = '_';
        }
    }
    return name;
}

ImageInfo Detect(const std::string& bytes) {
    try {
        MemoryImageSource source(bytes.data(), bytes.size());
        return DetectImageType(source);
    } catch (const std::exception&) {
        return ImageInfo{};   // not an image we know: kept with the extension "bin"
    }
}

SavedPicture Save(const BlobEntry& entry, const std::filesystem::path& folder) {
    SavedPicture saved;
    saved.key = Utf16ToUtf8(entry.name);
    saved.info = Detect(entry.data);
    saved.bytes = entry.data.size();
    const char* extension = saved.info.extension ? saved.info.extension : "bin";
    const std::filesystem::path file = folder / Utf8Path(FileNameOf(saved.key) + "." + extension);
    saved.path = PathUtf8(file);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(entry.data.data(), static_cast<std::streamsize>(entry.data.size()));
    if (!out) throw HostError("cannot write " + saved.path);
    return saved;
}

void PrintJson(const std::vector<SavedPicture>& saved) {
    JsonWriter json;
    json.BeginArray();
    for (const SavedPicture& picture : saved) {
        json.BeginObject();
        json.Key("path").String(picture.path);
        json.Key("key").String(picture.key);
        json.Key("type");
        if (picture.info.name) {
            json.String(picture.info.name);
        } else {
            json.Null();
        }
        json.Key("width").UInt(picture.info.width);
        json.Key("height").UInt(picture.info.height);
        json.Key("bytes").UInt(picture.bytes);
        json.EndObject();
    }
    json.EndArray();
    std::printf("%s\n", json.Text().c_str());
}

void PrintText(const std::vector<SavedPicture>& saved) {
    if (saved.empty()) std::printf("No pictures\n");
    for (const SavedPicture& picture : saved) {
        std::printf("%s: %s %ux%u, %zu bytes\n", picture.path.c_str(), picture.info.name ? picture.info.name : "unknown",
                    picture.info.width, picture.info.height, picture.bytes);
    }
}

int RunPictures(CommandContext& context) {
    std::string folder;
    if (!TakeOption(context.args, "-o", folder)) throw UsageError("no output folder given (-o DIR)");
    RequireArguments(context.args, 1, 1);
    const std::string& path = context.args[0];
    OpenResult result;
    if (!OpenAndRead(context, path, kOpenWantTags, result)) return OpenFailed(context.options, path);
    std::error_code error;
    const std::filesystem::path folderPath = Utf8Path(folder);
    std::filesystem::create_directories(folderPath, error);
    if (!std::filesystem::is_directory(folderPath)) throw HostError("cannot create the folder " + folder);
    std::vector<SavedPicture> saved;
    for (const BlobEntry& entry : result.tags) {
        if (IsArtKey(entry.name)) saved.push_back(Save(entry, folderPath));
    }
    if (context.options.json) {
        PrintJson(saved);
    } else {
        PrintText(saved);
    }
    return kExitOk;
}

}  // namespace

const Command kPicturesCommand = {"pictures", "PATH -o DIR [--json]",
                                  "write every picture of PATH's tags into DIR, one file each", RunPictures};

}  // namespace host
