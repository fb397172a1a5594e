// Writing APE tags: the exact bytes of a new tag, merging, the versions, the
// covers, and that the audio in front of the tag never changes.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagapev2.h"

using namespace tagtest;
using namespace std::string_literals;

namespace {

constexpr size_t kAudio = 1000;

class APEWriteTest : public ::testing::Test {
protected:
    void Make(const std::string& tail) { WriteBytes(path, AudioBytes(kAudio) + tail); }

    bool Write(const IDTags& tags, bool merge, bool version1 = false) {
        clFile file = OpenFile(path);
        TagAPEv2 engine(file);
        if (version1) engine.SetOption(S("APEWriteAPE1Tag"));
        bool ok = engine.Write(tags, merge);
        ExpectAudioKept();
        return ok;
    }
    void DeleteTag(const char* name) {
        clFile file = OpenFile(path);
        TagAPEv2 engine(file);
        engine.DeleteTag(S(name));
        ExpectAudioKept();
    }
    IDTags Read() {
        clFile file = OpenFile(path, clFile::kRead);
        TagAPEv2 engine(file);
        IDTags tags;
        EXPECT_TRUE(engine.Read(tags, false));
        return tags;
    }
    void ExpectAudioKept() {
        std::string bytes = ReadBytes(path);
        ASSERT_GE(bytes.size(), kAudio);
        EXPECT_EQ(bytes.substr(0, kAudio), AudioBytes(kAudio));
    }
    std::string Tail() { return ReadBytes(path).substr(kAudio); }

    TempDir dir;
    std::string path = dir.File("a.tak");
};

}  // namespace

TEST_F(APEWriteTest, NewTagIsVersion2000WithHeaderAndFooter) {
    Make("");
    IDTags tags;
    tags.Add(S("Title"), S("T\xC3\xA9"));
    tags.Add(S("Artist"), S("A\rB"));
    tags.Add(S("Comment"), S("x\ry"));
    tags.Add(S("rating"), S("7"));
    tags.Add(S("Encoded by"), S("me"));
    tags.Add(S("tempo"), S("99"));
    tags.Add(S("_crc"), S("c"));
    ASSERT_TRUE(Write(tags, true));
    ApeTag expected{{
        {"Title", "T\xC3\xA9"},
        {"Artist", "A\0B"s},
        {"Comment", "x\ry"},
        {"rating", "3.5"},
        {"Tool Name", "me"},
        {"BPM", "99"},
        {"CRC", "c"},
    }};
    EXPECT_EQ(Tail(), expected.Bytes());
    EXPECT_EQ(Describe(Read()), "Title=T\xC3\xA9;Artist=A|B;Comment=x|y;rating=7;Encoded by=me;tempo=99;_crc=c;");
}

TEST_F(APEWriteTest, Version1000OnlyForNewTags) {
    Make("");
    IDTags tags;
    tags.Add(S("Title"), S("Caf\xC3\xA9"));
    tags.Add(S("Genre"), S("Rock\rPop"));
    ASSERT_TRUE(Write(tags, true, true));
    ApeTag v1{{{"Title", "Caf\xE9\0"s}, {"Genre", "Rock\0Pop\0"s}}, 1000, false};
    EXPECT_EQ(Tail(), v1.Bytes());
    EXPECT_EQ(Describe(Read()), "Title=Caf\xC3\xA9;Genre=Rock|Pop;");

    // The existing version 1000 tag keeps its version, without a header.
    IDTags more;
    more.Add(S("Album"), S("X"));
    ASSERT_TRUE(Write(more, true));
    ApeTag merged{{{"Title", "Caf\xE9\0"s}, {"Genre", "Rock\0Pop\0"s}, {"Album", "X\0"s}}, 1000, false};
    EXPECT_EQ(Tail(), merged.Bytes());

    // An existing version 2000 tag stays version 2000 even when version 1000 is asked for.
    Make(ApeTag{{{"Title", "t"}}}.Bytes());
    ASSERT_TRUE(Write(more, true, true));
    EXPECT_EQ(Tail(), (ApeTag{{{"Title", "t"}, {"Album", "X"}}}.Bytes()));
}

TEST_F(APEWriteTest, MergeReplacesInPlaceAndAppendsNewNames) {
    std::string id3 = Id3v1{"id3 title"}.Bytes();
    Make(ApeTag{{{"Title", "old"}, {"Media JukeBox: Mood", "sad"}, {"Album", "a"}, {"X", "x"}}}.Bytes() + id3);
    IDTags tags;
    tags.Add(S("album"), S("new album"));
    tags.Add(S("Mood"), S("glad"));
    tags.Add(S("Year"), S("2020"));
    ASSERT_TRUE(Write(tags, true));
    ApeTag expected{{{"Title", "old"}, {"Media JukeBox: Mood", "glad"}, {"album", "new album"}, {"X", "x"},
                     {"Year", "2020"}}};
    EXPECT_EQ(Tail(), expected.Bytes() + id3);

    // Without merge the given entries are the whole tag, already in the file's form.
    IDTags whole;
    whole.Add(S("rating"), S("4.5"));
    ASSERT_TRUE(Write(whole, false));
    EXPECT_EQ(Tail(), (ApeTag{{{"rating", "4.5"}}}.Bytes() + id3));

    // An empty collection leaves no APE tag, but the ID3v1 tag.
    ASSERT_TRUE(Write(IDTags(), false));
    EXPECT_EQ(Tail(), id3);
}

TEST_F(APEWriteTest, OldHeaderAndFooterGoTogether) {
    // A version 1000 tag without header, then a version 2000 tag with one.
    Make(ApeTag{{{"A", "1\0"s}}, 1000, false}.Bytes());
    IDTags tags;
    tags.Add(S("B"), S("2"));
    ASSERT_TRUE(Write(tags, true));
    EXPECT_EQ(Tail(), (ApeTag{{{"A", "1\0"s}, {"B", "2\0"s}}, 1000, false}.Bytes()));

    Make(ApeTag{{{"A", "1"}}}.Bytes());
    ASSERT_TRUE(Write(tags, true));
    EXPECT_EQ(Tail(), (ApeTag{{{"A", "1"}, {"B", "2"}}}.Bytes()));
}

TEST_F(APEWriteTest, CoversBecomeFrontOrBackItems) {
    Make("");
    std::string png = "\x89PNG\r\n\x1a\n" + std::string(30, 'p');
    std::string jpeg = "\xFF\xD8\xFF\xE0" + std::string(30, 'j');
    IDTags tags;
    tags.AddBinary(S("_albumart_1_Back Album Cover<subdesc>Inlay"), png.data(), static_cast<uint32_t>(png.size()));
    tags.AddBinary(S("_albumart_2_Media"), jpeg.data(), static_cast<uint32_t>(jpeg.size()));
    tags.AddBinary(S("Blob"), "\0\1"s.data(), 2);
    ASSERT_TRUE(Write(tags, true));
    ApeTag expected{{
        {"Cover Art (back)", "C:\\Pretend.png\0"s + png, 2},
        {"Cover Art (front)", "C:\\Pretend.jpg\0"s + jpeg, 2},
        {"Blob", "\0\1"s, 2},
    }};
    EXPECT_EQ(Tail(), expected.Bytes());
    IDTags back = Read();
    EXPECT_EQ(Describe(back), "_albumart_1_Back Album Cover=[38 bytes];_albumart_2_Front Album Cover=[34 bytes];"
                              "Blob=[2 bytes];");
    EXPECT_EQ(DataOf(back[0]), png);
    EXPECT_EQ(DataOf(back[1]), jpeg);

    // A new picture of the same number and type replaces the old one whatever its description.
    IDTags replace;
    replace.AddBinary(S("_albumart_2_Front Album Cover<subdesc>New"), "NEW", 3);
    ASSERT_TRUE(Write(replace, true));
    ApeTag replaced{{
        {"Cover Art (back)", "C:\\Pretend.png\0"s + png, 2},
        {"Cover Art (front)", "C:\\Pretend.jpg\0NEW"s, 2},
        {"Blob", "\0\1"s, 2},
    }};
    EXPECT_EQ(Tail(), replaced.Bytes());
}

TEST_F(APEWriteTest, DeleteTagAndDelete) {
    std::string id3 = Id3v1{"t"}.Bytes();
    Make(ApeTag{{{"Title", "t"}, {"BPM", "1"}, {"Cover Art (Front)", "f\0F"s, 2}, {"Cover Art (Back)", "b\0B"s, 2}}}
             .Bytes() + id3);
    std::string before = ReadBytes(path);
    DeleteTag("nothing");
    EXPECT_EQ(ReadBytes(path), before);

    DeleteTag("tempo");
    ApeTag expected{{{"Title", "t"}, {"Cover Art (front)", "C:\\Pretend.jpg\0F"s, 2},
                     {"Cover Art (back)", "C:\\Pretend.jpg\0B"s, 2}}};
    EXPECT_EQ(Tail(), expected.Bytes() + id3);

    // APE covers have no description, and an empty description matches every
    // picture without one: removing one cover removes them all.
    DeleteTag("_albumart_1_Front Album Cover");
    EXPECT_EQ(Tail(), (ApeTag{{{"Title", "t"}}}.Bytes() + id3));

    clFile file = OpenFile(path);
    TagAPEv2 engine(file);
    engine.Delete();
    EXPECT_EQ(Tail(), id3);
}

TEST_F(APEWriteTest, OversizedValuesAreRefusedBeforeTheFileChanges) {
    std::string old = ApeTag{{{"Title", "t"}}}.Bytes();
    Make(old);
    std::string big(0x1000001, 'x');
    IDTags tags;
    tags.AddBinary(S("Big"), big.data(), static_cast<uint32_t>(big.size()));
    EXPECT_FALSE(Write(tags, true));
    EXPECT_EQ(Tail(), old);
}

TEST_F(APEWriteTest, DamagedTagsStayBehindTheNewOne) {
    IDTags tags;
    tags.Add(S("Title"), S("new"));
    ApeTag expected{{{"Title", "new"}}};
    std::string id3 = Id3v1{"x"}.Bytes();

    // A size beyond the file, a size reaching into the audio, an item that can't be read.
    ApeTag pastFile{{{"A", "1"}}};
    pastFile.size = 100000;
    std::string intoAudio = ApeFrameBytes(2000, 600, 1, 0x80000000u);
    std::string badItem = ApeFrameBytes(2000, 50, 1, 0xA0000000u) + U32(1000) + U32(0) + "K\0"s +
                          std::string(8, 'v') + ApeFrameBytes(2000, 50, 1, 0x80000000u);
    for (const std::string& damaged : {pastFile.Bytes(), intoAudio, badItem}) {
        Make(damaged + id3);
        ASSERT_TRUE(Write(tags, true));
        EXPECT_EQ(Tail(), damaged + expected.Bytes() + id3);
        EXPECT_EQ(Describe(Read()), "Title=new;");
    }
}
