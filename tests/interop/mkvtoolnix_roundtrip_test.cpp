// One generated differential round trip: files that mkvmerge, mkvpropedit and ffmpeg make in every layout they produce
// are written and stripped by fdhost in random steps from fixed, printed seeds. After every step mkvinfo reads the file
// clean, every CRC-32 and Seek entry holds, the Clusters stand at their offsets, every element the step didn't own is
// still there with its bytes, ffmpeg decodes the same audio, fdhost reads what mkvextract shows, and a tag the step
// didn't name keeps its value, targets and bytes. A step that fails leaves the file as it was.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/integration/testkit.h"
#include "tests/qel-matroska/ebmlwalk.h"

namespace {

using Json = nlohmann::json;
using Shown = std::map<std::string, std::string>;   // name -> value, or picture key -> bytes
using namespace ebmltest;

const char* kTagsXml = R"X(<?xml version="1.0"?><Tags>
<Tag><Targets><TargetTypeValue>50</TargetTypeValue></Targets>
<Simple><Name>TITLE</Name><String>The Album</String><TagLanguage>eng</TagLanguage></Simple>
<Simple><Name>ARTIST</Name><String>Band</String><Simple><Name>SORT_WITH</Name><String>Band, The</String></Simple></Simple></Tag>
<Tag><Targets><TargetTypeValue>70</TargetTypeValue><TargetType>COLLECTION</TargetType></Targets>
<Simple><Name>TITLE</Name><String>The Collection</String></Simple></Tag>
<Tag><Targets><TargetTypeValue>30</TargetTypeValue></Targets>
<Simple><Name>TITLE</Name><String>Song</String></Simple><Simple><Name>PART_NUMBER</Name><String>3</String></Simple></Tag>
</Tags>)X";
const char* kTrackXml = R"X(<?xml version="1.0"?><Tags><Tag><Simple><Name>MOOD</Name><String>calm</String></Simple></Tag></Tags>)X";

struct XmlSimple {   // `scoped`: aimed at a track, chapter, edition or attachment
    std::string targets, simple, name, value;
    int level = 50;
    bool scoped = false;
};
std::string Between(const std::string& text, const std::string& open, const std::string& close, size_t from = 0) {
    const size_t start = text.find(open, from), end = text.find(close, start + open.size());
    return start == std::string::npos ? "" : text.substr(start + open.size(), end - start - open.size());
}

// The top-level Simples of mkvextract's XML, with their Tag's Targets.
std::vector<XmlSimple> ParseTagsXml(const std::string& xml) {
    std::vector<XmlSimple> simples;
    for (size_t tag = xml.find("<Tag>"); tag != std::string::npos; tag = xml.find("<Tag>", tag + 1)) {
        const std::string body = Between(xml, "<Tag>", "</Tag>", tag);
        const std::string targets = Between(body, "<Targets>", "</Targets>");
        const std::string level = Between(targets, "<TargetTypeValue>", "</TargetTypeValue>");
        const bool scoped = targets.find("UID>") != std::string::npos;
        size_t depth = 0, start = 0;
        for (size_t at = body.find("Simple>"); at != std::string::npos; at = body.find("Simple>", at + 1)) {
            const bool closing = body[at - 1] == '/';
            if (!closing && depth++ == 0) start = at + 7;
            if (!closing || --depth != 0) continue;
            const std::string simple = body.substr(start, at - 2 - start);
            const std::string head = simple.substr(0, simple.find("<Simple>"));
            simples.push_back({targets, simple, Between(head, "<Name>", "</Name>"), Between(head, "<String>", "</String>"),
                               level.empty() ? (scoped ? 30 : 50) : std::stoi(level), scoped});
        }
    }
    return simples;
}
// A tag name of the host as (Matroska TagName, level).
std::pair<std::string, int> MatroskaName(const std::string& name) {
    static const std::map<std::string, std::pair<std::string, int>> kNames = {
        {"ALBUM", {"TITLE", 50}}, {"album artist", {"ARTIST", 50}}, {"track", {"PART_NUMBER", 30}},
        {"date", {"DATE_RECORDED", 30}}, {"disc", {"PART_NUMBER", 50}}};
    return kNames.count(name) ? kNames.at(name) : std::pair(name, 30);   // the others are upper case
}
bool Hidden(const std::string& name) {   // a muxer's statistics of the stream, and the number pairs
    return name.empty() || name[0] == '_' ||
           std::set<std::string>{"BPS", "DURATION", "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES", "PART_NUMBER", "TOTAL_PARTS"}.count(name);
}

class MkvRoundTrip : public ::testing::Test {
protected:
    enum class Step { Text, Picture, DeleteNames, DeleteAll, WriteBack, BadPicture };

    void SetUp() override {
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=d=3", "-c:a", "flac", flac});
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=d=3", "-c:a", "libvorbis", "-metadata", "artist=Ogg Artist", "-metadata",
                    "genre=Ogg Genre", ogg});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=32x24", "-frames:v", "1", cover});
        it::Ffmpeg({"-f", "lavfi", "-i", "nullsrc=s=320x240,geq=random(1)*255:128:128", "-frames:v", "1", big});
        it::WriteFile(svg, "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"4\" height=\"4\"/>");
        it::WriteFile(font, "not really a font");
        it::WriteFile(dir.File("tags.xml"), kTagsXml);
        it::WriteFile(dir.File("track.xml"), kTrackXml);
        it::WriteFile(dir.File("ch.txt"), "CHAPTER01=00:00:00.000\nCHAPTER01NAME=One\nCHAPTER02=00:00:01.000\nCHAPTER02NAME=Two\n");
    }
    static void Tool(std::vector<std::string> argv) {   // exit 1: warnings
        argv[0] = "/usr/bin/" + argv[0];
        const it::RunResult result = it::Run(argv);
        ASSERT_LE(result.exitCode, 1) << argv[0] << ": " << result.out << result.err;
    }
    std::vector<std::string> Mkvmerge(const std::string& out, std::vector<std::string> argv = {}) {
        argv.insert(argv.begin(), {"mkvmerge", "-q", "-o", out, "--chapters", dir.File("ch.txt"), "--global-tags",
                                   dir.File("tags.xml"), "--tags", "0:" + dir.File("track.xml"), "--attachment-mime-type",
                                   "application/x-truetype-font", "--attach-file", font, "--attachment-mime-type",
                                   "image/svg+xml", "--attach-file", svg, "--attach-file", cover, flac});
        return argv;
    }
    // Every layout the tools make, by name.
    void Make(const std::string& layout, const std::string& out) {
        const std::vector<std::string> copy = {"-map_metadata", "-1", "-metadata", "title=Old", "-metadata", "artist=Someone"};
        auto ffmpeg = [&](std::vector<std::string> args) {
            args.insert(args.begin(), {"-i", flac});
            args.insert(args.end() - 1, copy.begin(), copy.end());
            it::Ffmpeg(args);
        };
        if (layout == "ffmpeg, CRC-32, Cues behind") return ffmpeg({"-c", "copy", out});
        if (layout == "ffmpeg, Cues in front, no CRC-32")
            return ffmpeg({"-c", "copy", "-cues_to_front", "1", "-reserve_index_space", "200", "-write_crc32", "0", out});
        if (layout == "ffmpeg, remuxed from Ogg, attachments")
            return it::Ffmpeg({"-i", ogg, "-attach", cover, "-attach", font, "-metadata:s:t:0", "mimetype=image/png",
                               "-metadata:s:t:1", "mimetype=application/x-truetype-font", "-c", "copy", out});
        const std::string piped = it::FfmpegOutput({"-i", flac, "-c:a", "libopus", "-metadata", "title=Old", "-f", "webm", "pipe:1"});
        if (layout == "ffmpeg to a pipe, Segment of unknown size") return it::WriteFile(out, piped);
        if (layout == "recorder: unknown sizes, no SeekHead, no Cues") return it::WriteFile(out, AsRecorded(piped));
        if (layout == "mkvmerge") return Tool(Mkvmerge(out));
        if (layout == "mkvmerge, no Cues, no statistics") return Tool(Mkvmerge(out, {"--no-cues", "--disable-track-statistics-tags"}));
        if (layout == "mkvmerge, Chapters without a Seek entry") {
            Tool(Mkvmerge(out));
            return it::WriteFile(out, WithoutChaptersEntry(it::ReadFile(out)));
        }
        ffmpeg({"-c", "copy", out});   // then mkvpropedit moves things about
        Tool({"mkvpropedit", "-q", out, "--tags", "global:" + dir.File("tags.xml"), "--add-attachment", cover,
              "--edit", "info", "--set", "title=" + std::string(300, 'p')});
    }
    // A browser's recording: Segment and Clusters of unknown size, Info and Tracks in front, nothing else.
    static std::string AsRecorded(const std::string& piped) {
        const std::string unknown("\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8);
        const SegmentView view = WalkSegment(piped);
        std::string recorded = piped.substr(0, view.dataBegin - 8) + unknown;
        for (const Child& e : Children(piped, view.dataBegin - 12)) {
            if (e.id == 0x1549A966 || e.id == 0x1654AE6B) recorded += piped.substr(e.offset, e.end - e.offset);
            if (e.id == 0x1F43B675) recorded += piped.substr(e.offset, 4) + unknown + piped.substr(e.body, e.end - e.body);
        }
        return recorded;
    }
    static std::string WithoutChaptersEntry(std::string b) {   // its Seek entry becomes a Void
        for (const Child& seek : Children(b, WalkSegment(b).children.at(0).offset)) {
            const size_t size = seek.end - seek.offset - 2;
            if (seek.id == 0x4DBB && b.find("\x10\x43\xA7\x70", seek.body) < seek.end)
                b.replace(seek.offset, size + 2, "\xEC" + std::string(1, static_cast<char>(0x80 | size)) + std::string(size, '\0'));
        }
        return b;
    }
    void Check(bool ok, const std::string& what) {
        ++checks;
        if (!ok) ADD_FAILURE() << context << ": " << what << " (difference " << ++differences << ")";
    }
    std::string Audio(const std::string& file) { return it::FfmpegOutput({"-i", file, "-map", "0:a", "-f", "md5", "-"}); }
    // mkvextract's tags. Its analyzer refuses elements behind a Cluster of unknown size, which it takes as running to
    // the end; mkvmerge reads such a file, and its remux is asked instead.
    std::string Xml(const std::string& file) {
        const std::string xml = dir.File("tags.out.xml"), remux = dir.File("remux.mka");
        std::remove(xml.c_str());
        if (it::Run({"/usr/bin/mkvextract", file, "tags", xml}).exitCode == 2) {
            it::Run({"/usr/bin/mkvmerge", "-q", "-o", remux, file});
            it::Run({"/usr/bin/mkvextract", remux, "tags", xml});
        }
        return std::ifstream(xml).good() ? it::ReadFile(xml) : "";
    }
    // What fdhost reads: text tags by name, pictures by key with their bytes.
    Shown Read(const std::string& file) {
        Shown shown;
        const it::RunResult tags = it::Fdhost({"tags", file, "--json"});
        Check(tags.exitCode == 0, "fdhost tags failed: " + tags.err);
        const Json tagList = Json::parse(tags.out)["tags"];
        for (const Json& tag : tagList) {
            const std::string name = tag["name"];
            if (name.rfind("_albumart_", 0) != 0) shown[name] = tag["value"].get<std::string>();
        }
        const std::string out = dir.File("pictures" + std::to_string(++readings));
        const std::string pictures = it::Fdhost({"pictures", file, "-o", out, "--json"}).out;
        const Json pictureList = pictures.empty() ? Json::array() : Json::parse(pictures)["pictures"];
        for (const Json& picture : pictureList)
            shown[picture["key"].get<std::string>()] = it::ReadFile(picture["path"].get<std::string>());
        return shown;
    }
    // (id, body) of the top-level elements a step doesn't own, and the bodies of AttachedFiles.
    static std::multiset<std::string> Kept(const std::string& b, bool imagesToo) {
        std::multiset<std::string> kept;
        for (const TopElement& e : WalkSegment(b).children) {
            for (const Child& file : e.id == 0x1941A469 ? Children(b, e.offset) : std::vector<Child>{}) {
                const std::string body = b.substr(file.body, file.end - file.body);
                if (file.id == 0x61A7 && (imagesToo || body.find("image/") == std::string::npos)) kept.insert(body);
            }
            uint64_t body = e.offset, value = 0;
            const bool owned = std::set<uint32_t>{0x114D9B74, 0xEC, 0xBF, 0x1254C367, 0x1941A469}.count(e.id) != 0;
            if (!owned && ReadVar(b, body, value, true) && ReadVar(b, body, value, false))
                kept.insert(std::to_string(e.id) + ":" + b.substr(body, e.offset + e.total - body));
        }
        return kept;
    }
    void Verify(const std::string& file, const std::string& before, const Shown& shownBefore, const std::string& xmlBefore,
                Step step, const std::set<std::string>& named, const Shown& written) {
        const std::string after = it::ReadFile(file);
        const it::RunResult info = it::Run({"/usr/bin/mkvinfo", file});
        const std::string said = info.out + info.err;
        Check(info.exitCode == 0 && said.find("rror") == said.npos && said.find("arning") == said.npos, "mkvinfo: " + said);
        Check(CrcProblems(after).empty(), "CRC-32s: " + CrcProblems(after));
        Check(SeekProblems(after).empty(), "Seek entries: " + SeekProblems(after));
        Check(Clusters(after) == Clusters(before), "the Clusters moved or changed");
        Check(Audio(file) == audio, "the decoded audio changed");
        const bool picturesKept = step == Step::Text || step == Step::WriteBack;
        const std::multiset<std::string> was = Kept(before, picturesKept), now = Kept(after, picturesKept);
        Check(std::includes(now.begin(), now.end(), was.begin(), was.end()), "an element the step didn't own is gone");
        const Shown shown = Read(file);
        const std::string xml = Xml(file);
        const std::vector<XmlSimple> simples = ParseTagsXml(xml);
        std::set<std::string> pieces, names;
        for (const auto& [name, value] : shown) {
            for (size_t at = name.rfind("_albumart_", 0) == 0 ? value.size() + 1 : 0; at <= value.size();) {
                const size_t end = std::min(value.find_first_of(name == "track" || name == "disc" ? "\r/" : "\r", at), value.size());
                pieces.insert(value.substr(at, end - at));
                Check(xml.find("<String>" + value.substr(at, end - at) + "</String>") != std::string::npos,
                      "fdhost shows " + name + "=" + value + ", mkvextract doesn't");
                at = end + 1;
            }
        }
        for (const XmlSimple& s : simples) names.insert(s.scoped ? "" : s.name);
        for (const XmlSimple& s : simples) {
            const bool shadowed = s.scoped && names.count(s.name) != 0;
            if (s.value.empty() || Hidden(s.name) || shadowed || s.targets.find("ChapterUID") != std::string::npos) continue;
            Check(pieces.count(s.value) != 0, "mkvextract shows " + s.name + "=" + s.value + ", fdhost doesn't");
        }
        // What the step named reads back as it wrote it; the rest as it was.
        for (const auto& [name, value] : shownBefore) {
            const bool picture = name.rfind("_albumart_", 0) == 0;
            if (!named.count(name) && (!picture || picturesKept) && step != Step::DeleteAll)
                Check(shown.count(name) && shown.at(name) == value, "the step changed " + name);
        }
        for (const auto& [name, value] : written) {
            const std::string got = shown.count(name) ? shown.at(name) : "(none)";
            Check(got == value || got.rfind(value + "\r", 0) == 0, "wrote " + name + "=" + value.substr(0, 40) + ", read " + got.substr(0, 40));
        }
        for (const std::string& name : named) Check(step != Step::DeleteNames || !shown.count(name), "deleted " + name + ", still read");
        Check(step != Step::DeleteAll || shown.empty(), "delete of all left tags");
        // A Simple the step didn't name keeps its Targets and its bytes.
        if (step == Step::DeleteNames || step == Step::DeleteAll) return;
        for (const XmlSimple& s : ParseTagsXml(xmlBefore)) {
            bool addressed = s.name.rfind("_STATISTICS", 0) == 0;   // a remux's own
            for (const std::string& name : named) addressed = addressed || MatroskaName(name) == std::pair(s.name, s.level);
            Check(addressed || std::any_of(simples.begin(), simples.end(), [&](const XmlSimple& t) {
                      return t.targets == s.targets && t.simple == s.simple;
                  }), "lost " + s.name + "=" + s.value + " at " + s.targets);
        }
    }

    static std::string RandomText(std::mt19937& random, bool more = true) {
        std::string text(random() % 4 == 0 ? 200 + random() % 600 : 1 + random() % 12, 'a');
        for (char& c : text) c = static_cast<char>('a' + random() % 26);
        return more && random() % 3 == 0 ? text + "\r" + RandomText(random, false) : text;   // now and then two values
    }
    void RunStep(const std::string& file, std::mt19937& random) {
        const std::string before = it::ReadFile(file), xmlBefore = Xml(file);
        const Shown shownBefore = Read(file);
        const Step step = static_cast<Step>(random() % 6);
        std::set<std::string> named;
        Shown written;
        std::vector<std::string> args = {step == Step::DeleteNames || step == Step::DeleteAll ? "delete" : "write", file};
        static const std::vector<std::string> kNames = {"TITLE", "ARTIST", "ALBUM", "GENRE", "COMMENT", "track", "date", "MOOD", "album artist", "disc"};
        if (step == Step::Text || step == Step::Picture) {
            for (int n = 1 + random() % 3; n > 0; --n) {
                const std::string name = *named.insert(kNames[random() % kNames.size()]).first;
                const std::string total = name == "track" ? "/20" : "/3";   // a total that stays, so its bytes do
                written[name] = name == "track" || name == "disc" ? std::to_string(random() % 20) + total : RandomText(random);
            }
            for (const auto& [name, value] : written) args.insert(args.end(), {"--set", name + "=" + value});
        }
        if (step == Step::Picture) {
            const std::string& image = random() % 2 ? cover : big;
            args.insert(args.end(), {"--picture", "3=" + image});
            written["_albumart_1_Front Album Cover"] = it::ReadFile(image);
        }
        if (step == Step::BadPicture) args.insert(args.end(), {"--set", "COMMENT=lost", "--picture", "3=" + svg});
        if (step == Step::DeleteNames) {
            for (const auto& [name, value] : shownBefore)
                if (random() % 2 && name.rfind("_albumart_", 0) != 0) named.insert(name);
            named.insert(kNames[random() % kNames.size()]);
            args.insert(args.end(), named.begin(), named.end());
        }
        if (step == Step::WriteBack) {   // what was read, pictures and all, with one text changed
            Json tags = Json::array();
            named.insert("COMMENT");
            tags.push_back({{"name", "COMMENT"}, {"value", written["COMMENT"] = RandomText(random)}});
            for (const auto& [name, value] : shownBefore) {
                const bool picture = name.rfind("_albumart_", 0) == 0;
                const std::string data = dir.File("back" + std::to_string(tags.size()));
                if (picture) it::WriteFile(data, value);
                if (name != "COMMENT") tags.push_back(picture ? Json{{"name", name}, {"data_file", data}} : Json{{"name", name}, {"value", value}});
            }
            it::WriteFile(dir.File("back.json"), tags.dump());
            args.insert(args.end(), {"--from-json", dir.File("back.json")});
        }
        context += " / step " + std::to_string(static_cast<int>(step));
        ++steps;
        const int exit = it::Fdhost(args).exitCode;
        if (step == Step::BadPicture) return Check(exit == 1 && it::ReadFile(file) == before, "a failed write changed the file");
        Check(exit == 0, "fdhost " + args[0] + " failed");
        Verify(file, before, shownBefore, xmlBefore, step, named, written);
    }

    it::TempDir dir;
    std::string flac = dir.File("a.flac"), ogg = dir.File("a.ogg"), cover = dir.File("cover.png");
    std::string big = dir.File("big.jpg"), svg = dir.File("s.svg"), font = dir.File("font.ttf");
    std::string audio, context;
    int checks = 0, differences = 0, steps = 0, readings = 0;
};

}  // namespace

TEST_F(MkvRoundTrip, GeneratedLayoutsAgreeWithTheTools) {
    const char* layouts[] = {"ffmpeg, CRC-32, Cues behind", "ffmpeg, Cues in front, no CRC-32",
                             "ffmpeg, remuxed from Ogg, attachments", "ffmpeg to a pipe, Segment of unknown size",
                             "recorder: unknown sizes, no SeekHead, no Cues", "mkvmerge", "mkvmerge, no Cues, no statistics",
                             "mkvmerge, Chapters without a Seek entry", "ffmpeg, then mkvpropedit"};
    int files = 0;
    for (const char* layout : layouts) {
        for (const uint32_t seed : {1u, 2u, 3u}) {
            std::printf("layout \"%s\", seed %u\n", layout, seed);
            const bool webm = std::string(layout).find("unknown size") != std::string::npos;
            const std::string file = dir.File("f" + std::to_string(files++) + (webm ? ".webm" : ".mka"));
            Make(layout, file);
            audio = Audio(file);
            std::mt19937 random(seed);
            for (int step = 0; step < 4; ++step) {
                context = std::string(layout) + ", seed " + std::to_string(seed);
                RunStep(file, random);
            }
        }
    }
    std::printf("round trip: %d files, %zu layouts, %d writes and deletes, %d checks, %d differences\n", files,
                std::size(layouts), steps, checks, differences);
    EXPECT_EQ(differences, 0);
}
