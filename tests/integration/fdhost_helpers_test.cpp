// fdhost's own readers and digests: the tag blob as the plug-in writes it,
// and SHA-256 against the published test vectors.

#include <gtest/gtest.h>

#include <string>

#include "host/errors.h"
#include "host/sha256.h"
#include "host/tagblob.h"
#include "support/clBuffer.h"
#include "tags/idtags.h"

namespace {

std::string Sha(const std::string& bytes) { return host::Sha256Hex(bytes.data(), bytes.size()); }

TEST(FdhostSha256, PublishedVectors) {
    EXPECT_EQ(Sha(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Sha("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(Sha("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(Sha(std::string(1000000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    // 55, 56 and 64 bytes: the padding falls on either side of a block edge.
    EXPECT_EQ(Sha(std::string(55, 'a')), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318");
    EXPECT_EQ(Sha(std::string(56, 'a')), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a");
    EXPECT_EQ(Sha(std::string(64, 'a')), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
}

TEST(FdhostTagBlob, ReadsWhatTheCollectionWrites) {
    IDTags tags;
    tags.Add(clString(u"TITLE"), clString(u"A title"));
    tags.Add(clString(u"ARTIST"), clString(u"One\rTwo"));
    const std::string picture("\x89PNG\r\n\x1a\n\0\0binary", 16);
    tags.AddBinary(clString(u"_albumart_1_Front"), picture.data(), static_cast<uint32_t>(picture.size()));
    tags.Add(clString(u"EMPTY"), clString());
    clBuffer blob;
    tags.Serialise(blob);

    const std::vector<host::BlobEntry> entries = host::ReadTagBlob(blob.Data(), blob.Size());
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[0].name, u"TITLE");
    EXPECT_EQ(entries[0].value, u"A title");
    EXPECT_EQ(entries[1].value, u"One\rTwo");
    EXPECT_EQ(entries[2].name, u"_albumart_1_Front");
    EXPECT_EQ(entries[2].value, u"");
    EXPECT_EQ(entries[2].data, picture);
    EXPECT_EQ(entries[3].name, u"EMPTY");
    EXPECT_TRUE(entries[3].data.empty());

    EXPECT_TRUE(host::ReadTagBlob(nullptr, 0).empty());
}

TEST(FdhostTagBlob, RefusesWhatDoesntHoldTogether) {
    IDTags tags;
    tags.Add(clString(u"NAME"), clString(u"value"));
    clBuffer blob;
    tags.Serialise(blob);
    const std::string good(reinterpret_cast<const char*>(blob.Data()), blob.Size());

    std::string truncated = good.substr(0, good.size() - 3);
    EXPECT_THROW(host::ReadTagBlob(truncated.data(), truncated.size()), host::HostError);
    std::string moreCounted = good;
    moreCounted[0] = 2;
    EXPECT_THROW(host::ReadTagBlob(moreCounted.data(), moreCounted.size()), host::HostError);
    std::string trailing = good + "xy";
    EXPECT_THROW(host::ReadTagBlob(trailing.data(), trailing.size()), host::HostError);
    std::string hugeLength = good;
    hugeLength[7] = '\x7f';
    EXPECT_THROW(host::ReadTagBlob(hugeLength.data(), hugeLength.size()), host::HostError);
    // A value without its NUL inside the entry's length.
    std::string noNul = good;
    noNul[noNul.size() - 2] = 'x';
    EXPECT_THROW(host::ReadTagBlob(noNul.data(), noNul.size()), host::HostError);
    EXPECT_THROW(host::ReadTagBlob("ab", 2), host::HostError);
}

}  // namespace
