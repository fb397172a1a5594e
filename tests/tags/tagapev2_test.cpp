// The APE engine over real files: neither a damaged tag nor a write may ever
// touch the audio in front of the tag.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagapev2.h"
#include "tags/tagid3v1.h"

using namespace tagtest;

namespace {

constexpr auto kStart = static_cast<int64_t>(TagFileTest::kAudio);   // where a tag behind the audio begins

class APETest : public TagFileTest {
protected:
    // "(none)" without a tag, "(fails)" when the read fails, the entries, then "@" and where the tag begins past the audio.
    std::string Read(bool keepRaw = false, std::string* savedID3v1 = nullptr) {
        return RunEngine<TagAPEv2>(path, [&](TagAPEv2& engine) {
            IDTags tags;
            const bool exists = engine.Exists(), ok = engine.ReadRaw(tags, true, keepRaw);
            if (savedID3v1) savedID3v1->assign(reinterpret_cast<const char*>(engine.SavedID3v1), sizeof engine.SavedID3v1);
            return (exists ? "" : "(none)") + std::string(ok ? "" : "(fails)") + Describe(tags) + " @" + std::to_string(engine.TagStart - kStart);
        }, clFile::kRead);
    }
};

}  // namespace

// What a read finds: the entries, and where the tag begins, from the end of
// the audio; a damaged tag never claims a byte of audio.
TEST_F(APETest, ReadsWhatIsThereAndNeverClaimsAudio) {
    const std::string png = "\x89PNG\r\n\x1a\n" + std::string(20, 'p'), good = ApeItem("Good", "g").Bytes();
    // An item that can't be read ends the walk. The items don't bear out the
    // stated size, but a header that agrees with the footer does.
    const auto BadItem = [&](const std::string& bad, bool header) {
        const auto size = static_cast<uint32_t>(good.size() + bad.size() + 32);
        return (header ? ApeFrameBytes(2000, size, 2, 0xA0000000u) : "") + good + bad + ApeFrameBytes(2000, size, 2, 0x80000000u);
    };
    const std::string pastEnd = U32(100) + U32(0) + "Key\0v"s, noKeyEnd = U32(1) + U32(0) + "KeyWithoutEnd";
    // `tags` and `tagStart` as Read() shows them.
    const struct { const char* what; std::string tail; std::string tags; int64_t tagStart = 0; } rows[] = {
        {"in front of ID3v1", ApeTag({{"Title", "T"}, {"Artist", "a\0b"s}}).Bytes() + Id3v1("x"), "Title=T;Artist=a|b;TagVersion=APEv2;"},
        {"version 1000, ANSI", ApeTag({{"Title", "Caf\xE9\0"s}}, 1000, false).Bytes(), "Title=Caf\xC3\xA9;TagVersion=APEv1;"},
        // Small tags at the very end aren't ID3v1: at 131 bytes the header shows
        // "TAG" just where an ID3v1 tag would, and an item's text may do the same.
        {"128 bytes", ApeTag({{"K", std::string(54, 'v')}}).Bytes(), "K=" + std::string(54, 'v') + ";TagVersion=APEv2;"},
        {"131 bytes", ApeTag({{"K", std::string(57, 'v')}}).Bytes(), "K=" + std::string(57, 'v') + ";TagVersion=APEv2;"},
        {"TAG in a value", ApeTag({{"K", std::string(30, 'v') + "TAG" + std::string(93, 'v')}}).Bytes(),
         "K=" + std::string(30, 'v') + "TAG" + std::string(93, 'v') + ";TagVersion=APEv2;"},
        {"items and their names", ApeTag({{"Tool Name", "enc"}, {"bpm", "120"}, {"CRC", "abcd"}, {"COVER ART (FRONT)", "cover.png\0"s + png, 2},
                 {"Cover Art (Inlay)", "x\0DATA"s, 2},
                 {"Cover Art (front)", "no file name", 2},     // dropped, still counted
                 {"Cover Art (front)", "only a name\0"s, 2},   // dropped, still counted
                 {"Cover art (front)", "text"}, {"Link", "http://x", 4}, {"", "empty key"}, {"Empty", ""},
                 {"Multi", "a\0\0b\0"s}, {"Media JukeBox: Rating", "3.5"}, {"rating", "2.75"}})
             .Bytes(),
         "Encoded by=enc;tempo=120;_crc=abcd;_albumart_1_Front Album Cover=[28 bytes];_albumart_2=[4 bytes];"
         "_albumart_5_Front Album Cover=text;Multi=a||b;Rating=7;rating=5;TagVersion=APEv2;"},
        {"count huge", ApeTag({{"A", "1"}, {"B", "2"}}).Stating(-1, 0xFFFFFFFF).Bytes(), "A=1;B=2;TagVersion=APEv2;"},
        // Damaged sizes (more: StdTagsTest, HostileApeTags...; the ape fuzz replay).
        {"value past the end, header", BadItem(pastEnd, true), "Good=g;TagVersion=APEv2;"},
        {"value past the end", BadItem(pastEnd, false), "Good=g;TagVersion=APEv2;", 59},
        {"key without end", BadItem(noKeyEnd, false), "Good=g;TagVersion=APEv2;", 67},
        {"unknown version: audio", ApeTag({{"T", "t"}}, 3000).Bytes(), "(none)", 75},
    };
    for (const auto& row : rows) {
        Make("", row.tail);
        std::string saved;
        EXPECT_EQ(Read(false, &saved), row.tags + " @" + std::to_string(row.tagStart)) << row.what;
        const bool id3v1 = row.tail.ends_with(Id3v1("x"));
        EXPECT_EQ(saved, id3v1 ? row.tail.substr(row.tail.size() - 128) : std::string(128, '\0')) << row.what;
        EXPECT_EQ(RunEngine<TagID3v1>(path, [](TagID3v1& e) { return e.Exists(); }, clFile::kRead), id3v1) << row.what;
    }
    // Names stay in the file's form for the writer.
    Make("", ApeTag({{"Media JukeBox: Rating", "3.5"}, {"rating", "2.75"}}).Bytes());
    EXPECT_EQ(Read(true), "Media JukeBox: Rating=3.5;rating=2.75;TagVersion=APEv2; @0");
}

// Writes and deletes, each on the file as the row before left it unless the row
// starts anew (names to keys, UTF-8, multiple values, rating, new and replaced covers: MutagenApe).
TEST_F(APETest, WritesAndDeletes) {
    const ApeItem back("Cover Art (back)", "b.png\0PNG"s, 2), front("Cover Art (front)", "f.jpg\0JPEG"s, 2);
    const auto Write = [](IDTags tags, bool version1 = false) {
        return [tags, version1](TagAPEv2& engine) {
            if (version1) engine.SetOption(S("APEWriteAPE1Tag"));
            return engine.Write(tags, true);
        };
    };
    const auto Delete = [](const char* name) { return [name](TagAPEv2& e) { return name ? e.DeleteTag(S(name)) : e.Delete(), true; }; };
    const std::string v1 = Id3v1("t"), keep = "(as left)";
    const struct { const char* what; std::string start; std::function<bool(TagAPEv2&)> op; std::string tail; } rows[] = {
        // A CR stays inside a value of a single-valued name.
        {"names to keys", "", Write(Tags({{"Comment", "x\ry"}, {"Encoded by", "me"}, {"tempo", "99"}, {"_crc", "c"}})),
         ApeTag({{"Comment", "x\ry"}, {"Tool Name", "me"}, {"BPM", "99"}, {"CRC", "c"}}).Bytes()},
        // Version 1000: no header, ANSI text, a NUL behind every value.
        {"version 1000", "", Write(Tags({{"Title", "Caf\xC3\xA9"}, {"Genre", "Rock\rPop"}}), true),
         ApeTag({{"Title", "Caf\xE9\0"s}, {"Genre", "Rock\0Pop\0"s}}, 1000, false).Bytes()},
        {"version 1000 kept", keep, Write(Tags({{"Album", "X"}})),
         ApeTag({{"Title", "Caf\xE9\0"s}, {"Genre", "Rock\0Pop\0"s}, {"Album", "X\0"s}}, 1000, false).Bytes()},
        // An existing version 2000 tag keeps its version, and its old header goes with it.
        {"version 2000 kept", ApeTag({{"Title", "t"}}).Bytes(), Write(Tags({{"Album", "X"}}), true),
         ApeTag({{"Title", "t"}, {"Album", "X"}}).Bytes()},
        {"delete tempo", ApeTag({{"Title", "t"}, {"BPM", "1"}, back, front}).Bytes() + v1, Delete("tempo"),
         ApeTag({{"Title", "t"}, back, front}).Bytes() + v1},
        // APE covers have no description, and an empty one matches every picture
        // without one: removing one cover removes them all.
        {"delete a cover", keep, Delete("_albumart_1_Front Album Cover"), ApeTag({{"Title", "t"}}).Bytes() + v1},
        {"delete", keep, Delete(nullptr), v1},
    };
    for (const auto& row : rows) {
        if (row.start != keep) Make("", row.start);
        EXPECT_TRUE(RunEngine<TagAPEv2>(path, row.op)) << row.what;
        EXPECT_EQ(Tail(), row.tail) << row.what;
    }
}
