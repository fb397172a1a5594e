// Damaged and hostile APE tags through the standard flows: a write or a delete
// either does what it says or reports that it didn't, and it never cuts a byte
// that isn't proven to be the tag's.

#include <gtest/gtest.h>

#include <functional>

#include "tagfixture.h"
#include "tags/stdtags.h"

using namespace tagtest;
using namespace std::string_literals;

namespace {

constexpr int kFamilyApe = 1;
constexpr char kRefusedFlag[] = "refused";   // in place of the expected bytes: the file stays as it was

// Reasons the flows log behind their own words.
constexpr char kDamaged[] = "The APE tag is damaged";
constexpr char kUnreadable[] = "The APE tag has items that can't be read";

const ApeItem kTitle{"Title", "t"};
const ApeItem kAlbum{"Album", "a"};

// Title and album around an item whose value size runs past the footer.
std::string DamagedInTheMiddle(bool header) {
    std::string items = kTitle.Bytes() + U32(500) + U32(0) + "Bad\0v"s + kAlbum.Bytes();
    auto size = static_cast<uint32_t>(items.size() + 32);
    std::string head = header ? ApeFrameBytes(2000, size, 3, 0xA0000000u) : "";
    return head + items + ApeFrameBytes(2000, size, 3, header ? 0x80000000u : 0);
}

// A header flag, but the 32 bytes in front of the items are audio.
std::string HeaderFlagWithoutHeader() {
    std::string tag = ApeTag({kTitle, kAlbum}, 2000, false).Bytes();
    tag.replace(tag.size() - 12, 4, U32(0x80000000u));
    return tag;
}

// What the APE part of the file is after a write, a delete of everything and a
// delete of "Album"; kRefusedFlag when the operation must fail and leave it.
struct HostileCase {
    const char* what;
    std::string tag;
    std::string afterWrite, afterDelete, afterDeleteAlbum;
    const char* reason;   // logged with a refusal
};

std::vector<HostileCase> Cases() {
    const std::string refused = kRefusedFlag;
    const std::string rewritten = ApeTag({{"Title", "New"}, kAlbum}).Bytes();
    const std::string onlyNew = ApeTag({{"Title", "New"}}).Bytes();
    const std::string titleLeft = ApeTag({kTitle}).Bytes();
    // The issue's own example: a footer of no items claims the 1000 bytes of audio in front.
    const std::string emptyFooter = ApeFrameBytes(2000, 1032, 0, 0);
    const std::string emptyFooterPastFile = ApeFrameBytes(2000, 100000, 0, 0x80000000u);
    const std::string noHeader = HeaderFlagWithoutHeader();
    return {
        {"intact", ApeTag({kTitle, kAlbum}).Bytes(), rewritten, "", titleLeft, nullptr},
        {"count 0, size into the audio", emptyFooter, onlyNew, "", emptyFooter, nullptr},
        {"count 0, size past the file", emptyFooterPastFile, onlyNew, "", emptyFooterPastFile, nullptr},
        {"size past the file", ApeTag({kTitle, kAlbum}).Stating(100000).Bytes(), refused, refused, refused, kDamaged},
        {"size smaller than the items", ApeTag({kTitle, kAlbum}).Stating(40).Bytes(), refused, refused, refused,
         kDamaged},
        {"size below a footer", ApeTag({kTitle, kAlbum}).Stating(31).Bytes(), refused, refused, refused, kDamaged},
        {"count smaller than the items", ApeTag({kTitle, kAlbum}, 2000, false).Stating(-1, 1).Bytes(), refused,
         refused, refused, kDamaged},
        {"header flag without a header", noHeader, rewritten, "", titleLeft, nullptr},
        {"damaged item, header", DamagedInTheMiddle(true), refused, "", refused, kUnreadable},
        {"damaged item, no header", DamagedInTheMiddle(false), refused, refused, refused, kDamaged},
    };
}

class HostileApeTest : public TagFileTest {
protected:
    // Runs one flow on audio + tag + id3v1 and checks the whole file and the log.
    void Check(const HostileCase& c, const std::string& id3v1, const std::string& id3v1After, const char* op,
               const std::string& expected, const std::function<bool(const std::string&, const clLogTarget*)>& flow) {
        SCOPED_TRACE(std::string(c.what) + ", " + op + (id3v1.empty() ? "" : ", with ID3v1"));
        Make(c.tag + id3v1);
        size_t logBefore = log.Text().size();
        bool refused = expected == kRefusedFlag;
        EXPECT_EQ(flow(path, log.Target()), !refused);
        EXPECT_EQ(Tail(), refused ? c.tag + id3v1 : expected + id3v1After);   // refused: as it was
        std::string logged = log.Text().substr(logBefore);
        if (!refused) {
            EXPECT_EQ(logged, "");
            return;
        }
        const char* words = std::string(op) == "write" ? "Could not write APE tag  [WriteStdTags]\r\n"
                                                       : "Could not delete APE tag  [DeleteStdTags]\r\n";
        EXPECT_NE(logged.find(words), std::string::npos) << logged;
        EXPECT_NE(logged.find(c.reason), std::string::npos) << logged;
    }
};

bool WriteTitle(const std::string& path, const clLogTarget* log) {
    return WriteStdTags(S(path), Tags({{"Title", "New"}}), kFamilyApe, log);
}
bool DeleteAll(const std::string& path, const clLogTarget* log) { return DeleteStdTags(S(path), nullptr, log); }
bool DeleteAlbum(const std::string& path, const clLogTarget* log) { return DeleteStdTags(S(path), u"Album\0", log); }

}  // namespace

TEST_F(HostileApeTest, WritesAndDeletesTellTheTruthAndKeepTheAudio) {
    // Behind the APE tag: no ID3v1 tag, one with fields, and a blank one, which
    // is updated in place: behind it, a new one would hide the APE tag.
    const struct {
        std::string before, afterWrite, afterDelete, afterDeleteAlbum;
    } id3v1s[] = {{"", "", "", ""},
                  {Id3v1("Old", "Artist", "Album"), Id3v1("New", "Artist", "Album"), "", Id3v1("Old", "Artist")},
                  {Id3v1(""), Id3v1("New"), "", Id3v1("")}};
    for (const HostileCase& c : Cases()) {
        for (const auto& v1 : id3v1s) {
            Check(c, v1.before, v1.afterWrite, "write", c.afterWrite, WriteTitle);
            Check(c, v1.before, v1.afterDelete, "delete", c.afterDelete, DeleteAll);
            Check(c, v1.before, v1.afterDeleteAlbum, "delete Album", c.afterDeleteAlbum, DeleteAlbum);
        }
    }
}

// A write that the reader would refuse, or one under a key that the format
// doesn't allow, changes no tag (a write that finds no room: filesizelimit_posix.cpp).
TEST_F(HostileApeTest, RefusedWritesLeaveTheFileAsItWas) {
    const std::string huge(0x1000001, 'x');
    for (const std::string& key : {"Big"s, "T"s, std::string(256, 'k'), "Tab\there"s, "T\xC3\xADtle"s, "id3"s, "Tag"s,
                                   "OGGS"s, "mp+"s}) {
        IDTags tags = Tags({{"Title", "New"}});
        if (key == "Big") tags.AddBinary(S(key), huge.data(), static_cast<uint32_t>(huge.size()));
        else tags.Add(S(key), S("v"));
        const HostileCase c{key.c_str(), ApeTag({kTitle, kAlbum}).Bytes(), "", "", "",
                            key == "Big" ? "too large" : "can't be an APE item key"};
        Check(c, Id3v1("Old"), "", "write", kRefusedFlag, [&](const std::string& file, const clLogTarget* target) {
            return WriteStdTags(S(file), tags, kFamilyApe, target);
        });
    }
}
