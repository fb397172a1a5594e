// pictures: writes every picture among a file's tags to a folder, one file
// each, named after its art key with the extension of its detected type.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/errors.h"
#include "host/cli.h"
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

Json PicturesJson(const std::vector<SavedPicture>& saved) {
    Json list = Json::array();
    for (const SavedPicture& picture : saved) {
        list.push_back({{"path", picture.path},
                        {"key", picture.key},
                        {"type", picture.info.name ? Json(picture.info.name) : Json(nullptr)},
                        {"width", picture.info.width},
                        {"height", picture.info.height},
                        {"bytes", picture.bytes}});
    }
    return list;
}

void PrintText(const std::vector<SavedPicture>& saved) {
    if (saved.empty()) std::printf("No pictures\n");
    for (const SavedPicture& picture : saved) {
        std::printf("%s: %s %ux%u, %zu bytes\n", picture.path.c_str(), picture.info.name ? picture.info.name : "unknown",
                    picture.info.width, picture.info.height, picture.bytes);
    }
}

void DefinePictures(CLI::App& command, CommandArgs& args) {
    DefinePathArgument(command, args);
    command.add_option("-o,--output", args.outPath, "the folder to write the pictures into (made when missing)")
        ->type_name("DIR")
        ->required()
        ->check(NonEmpty());
}

int RunPictures(CommandContext& context) {
    const std::string& path = context.args.path;
    const std::string& folder = context.args.outPath;
    Session session(context.options);
    OpenResult result;
    if (!OpenAndRead(session, context.options, path, kOpenWantTags, result)) return OpenFailed(session, path);
    const std::vector<std::string> warnings = session.Warnings(path);
    std::error_code error;
    const std::filesystem::path folderPath = Utf8Path(folder);
    std::filesystem::create_directories(folderPath, error);
    if (!std::filesystem::is_directory(folderPath)) throw HostError("cannot create the folder " + folder);
    std::vector<SavedPicture> saved;
    for (const BlobEntry& entry : result.tags) {
        if (IsArtKey(entry.name)) saved.push_back(Save(entry, folderPath));
    }
    if (context.options.json) {
        PrintJson({{"path", path}, {"pictures", PicturesJson(saved)}, {"warnings", warnings}});
    } else {
        PrintText(saved);
    }
    return kExitOk;
}

}  // namespace

const Command kPicturesCommand = {"pictures", "write every picture of PATH's tags into DIR, one file each",
                                  DefinePictures, RunPictures};

}  // namespace host
