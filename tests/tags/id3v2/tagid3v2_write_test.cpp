// TagID3v2 writing and deleting over files, alone and in the standard flows:
// what the tag holds afterwards, and that the audio behind it is the same
// bytes after every write, move and delete.

#include "tags/id3v2/tagid3v2.h"
#include "tags/stdtags.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

const std::string kPriv = Frame23("PRIV", std::string("owner\0data", 10));
const std::string kOld23 = Tag(3, Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv);

class TagID3v2WriteTest : public TagFileTest {
protected:
    bool Write(const IDTags& tags, std::initializer_list<const char16_t*> options = {}) {
        return RunEngine<TagID3v2>(path, [&](TagID3v2& engine) {
            for (const char16_t* option : options) engine.SetOption(clString(option));
            return engine.Write(tags, false);
        });
    }
    void Delete() {
        RunEngine<TagID3v2>(path, [](TagID3v2& engine) { engine.Delete(); });
    }
};

}  // namespace

TEST_F(TagID3v2WriteTest, WritesWhatIsAskedAndKeepsTheRest) {
    IDTags noFront;
    noFront.AddBinary(S("_albumart_1_Front Album Cover"), nullptr, 0);
    const struct {
        const char* what;
        IDTags tags;
        std::string frames;   // expected tag, as hand-made frames
        std::initializer_list<const char16_t*> options = {};
    } cases[] = {
        {"an empty value deletes", Tags({{"Album", ""}}), Frame23("TIT2", Text("Old")) + kPriv},
        {"or the whole date", Tags({{"year", "2001-03-02"}}),
         Frame23("TYER", Text("2001-03-02") + '\0') + Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) +
             kPriv,
         {u"WriteFullDateInYearTag"}},
        {"comments join comment", Tags({{"comments", "b"}, {"comment", "a"}}),
         Frame23("COMM", std::string("\0eng\0a\0", 7)) + Frame23("COMM", std::string("\0eng\0b\0", 7)) +
             Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv},
    };
    for (const auto& c : cases) {
        Make(kOld23);
        ASSERT_TRUE(Write(c.tags, c.options)) << c.what;
        EXPECT_EQ(Front(), Tag(3, c.frames)) << c.what;
    }
    // A picture without data deletes the pictures of its type.
    Make(Tag(3, Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv +
                    Frame23("APIC", std::string("\0\0\x03\0p", 5))));
    ASSERT_TRUE(Write(noFront));
    EXPECT_EQ(Front(), kOld23);
}

TEST_F(TagID3v2WriteTest, DeletesAndRefusals) {
    Make(kOld23);
    RunEngine<TagID3v2>(path, [](TagID3v2& engine) { engine.DeleteTag(S("Album")); });
    EXPECT_EQ(Front(), Tag(3, Frame23("TIT2", Text("Old")) + kPriv));
    ASSERT_TRUE(Write(Tags({{"Title", ""}})));
    EXPECT_EQ(Front(), Tag(3, kPriv));
    Delete();
    EXPECT_EQ(ReadFile(path), audio);

    // Deleting the last value deletes the whole tag.
    Make(Tag(3, Frame23("TIT2", Text("Old"))));
    ASSERT_TRUE(Write(Tags({{"Title", ""}})));
    EXPECT_EQ(ReadFile(path), audio);

    // Padding and a footer are the tag's: a rewrite or a delete takes them along.
    Make(Tag(3, Frame23("TIT2", Text("Old")) + std::string(100, '\0')));
    ASSERT_TRUE(Write(Tags({{"Title", "x"}})));
    EXPECT_EQ(Front(), Tag(3, Frame23("TIT2", Text("x") + '\0')));
    const std::string footed = Tag(4, Frame24("TIT2", Text("t")) + std::string(7, '\0'), 0x10);
    Make(footed + "3DI" + footed.substr(3, 7));
    Delete();
    EXPECT_EQ(ReadFile(path), audio);

    // A tag that doesn't parse, claims more than the file, or whose padding
    // isn't zeros: nothing is proven to be tag bytes, so nothing is written or cut.
    const std::string overrun = Tag(3, Frame23("TIT2", Text("t")) + "TALB" + BigEndian(1000, 4) + std::string(2, '\0'));
    const std::string tooLong = std::string("ID3\x03\0\0\0\x7F\x7F\x7F", 10) + Frame23("TIT2", Text("t"));
    const std::string junkPadding = Tag(3, Frame23("TIT2", Text("t")) + std::string(20, '\0') + "audio?");
    for (const std::string& tag : {overrun, tooLong, junkPadding, footed + "3DX" + footed.substr(3, 7)}) {
        Make(tag);
        if (tag == junkPadding) {   // a write keeps what isn't zeros, behind the new frames
            ASSERT_TRUE(Write(Tags({{"Title", "longer"}})));
            EXPECT_EQ(Front(), Tag(3, Frame23("TIT2", Text("longer") + '\0') + std::string(20, '\0') + "audio?"));
            Make(tag);
        } else {
            EXPECT_FALSE(Write(Tags({{"Title", "x"}})));
        }
        EXPECT_TRUE(RunEngine<TagID3v2>(path, [](TagID3v2& engine) {
            engine.Delete();
            return engine.Failure != nullptr;
        }));
        EXPECT_FALSE(DeleteStdTags(S(path), nullptr, log.Target()));
        EXPECT_EQ(ReadFile(path), tag + audio);
    }
    EXPECT_NE(log.Text().find("Could not delete ID3v2 tag  [DeleteStdTags]\r\nThe ID3v2 tag is damaged"),
              std::string::npos) << log.Text();
}
