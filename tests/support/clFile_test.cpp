// clFile on real files in a private temporary folder. ShiftTail is checked
// byte for byte against a model of the move.

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "support/clFile.h"

namespace {

using Bytes = std::vector<uint8_t>;

class ClFileTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "clfile-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string Make(const Bytes& content, const std::string& name = "f.bin") {
        const std::string path = (dir_ / name).string();
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(content.data()),
                                                    static_cast<std::streamsize>(content.size()));
        return path;
    }

    static Bytes Load(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    std::filesystem::path dir_;
};

Bytes RandomBytes(size_t count, unsigned seed) {
    std::mt19937 engine(seed);
    Bytes out(count);
    for (auto& b : out) b = static_cast<uint8_t>(engine());
    return out;
}

// What ShiftTail must leave: the tail at its new place, the bytes it left
// behind unchanged, a hole in a grown file read as zeros.
Bytes ShiftModel(Bytes old, int64_t position, int64_t delta) {
    const auto size = static_cast<int64_t>(old.size());
    Bytes result = old;
    if (delta > 0) result.resize(static_cast<size_t>(size + delta), 0);
    if (position < size) {
        const int64_t target = std::max<int64_t>(position + delta, 0);
        std::copy(old.begin() + position, old.end(), result.begin() + target);
    }
    result.resize(static_cast<size_t>(std::max<int64_t>(size + delta, 0)), 0);
    return result;
}

clString Path(const std::string& utf8) { return clString::FromUtf8(utf8); }

int OpenDescriptorCount() {
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
}

}  // namespace

TEST_F(ClFileTest, ShiftTailMatchesTheModelInBothDirections) {
    struct Case {
        size_t size;
        int64_t position;
        int64_t delta;
    };
    const Case cases[] = {
        {20, 10, 5},          {20, 10, -5},          {20, 20, 7},        {20, 20, -7},
        {20, 0, 3},           {200000, 1000, 5},     {200000, 1000, -5}, {200000, 70000, 65536},
        {200000, 70000, -65537}, {200000, 3, 100000}, {200000, 100, -100}, {131072, 0, 65535},
        {20, 25, 4},          {20, 10, 0},
    };
    unsigned seed = 1;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.size << " " << c.position << " " << c.delta);
        const Bytes old = RandomBytes(c.size, seed++);
        const std::string path = Make(old);
        clFile file(Path(path));
        ASSERT_TRUE(file.Open(clFile::kReadWrite));
        EXPECT_TRUE(file.ShiftTail(c.position, c.delta));
        file.Close();
        const Bytes now = Load(path);
        ASSERT_EQ(now.size(), static_cast<size_t>(static_cast<int64_t>(c.size) + c.delta));
        EXPECT_TRUE(now == ShiftModel(old, c.position, c.delta));
    }

    // A read-only handle can't move anything and says so.
    const std::string path = Make(RandomBytes(100, 9));
    clFile readOnly(Path(path));
    ASSERT_TRUE(readOnly.Open(clFile::kRead));
    EXPECT_FALSE(readOnly.ShiftTail(10, 5));
    EXPECT_FALSE(clFile().ShiftTail(0, 1));
}

TEST_F(ClFileTest, SetLengthGrowsWithZerosAndCuts) {
    const Bytes old = RandomBytes(10, 3);
    const std::string path = Make(old);
    clFile file(Path(path));
    ASSERT_TRUE(file.Open(clFile::kReadWrite));
    ASSERT_TRUE(file.SetLength(10 + 65537));
    EXPECT_EQ(file.Size(), 10 + 65537);
    EXPECT_EQ(file.Tell(), 10 + 65537);
    Bytes expected = old;
    expected.resize(10 + 65537, 0);
    EXPECT_TRUE(Load(path) == expected);

    ASSERT_TRUE(file.SetLength(4));
    EXPECT_EQ(file.Size(), 4);
    EXPECT_TRUE(Load(path) == Bytes(old.begin(), old.begin() + 4));
    EXPECT_FALSE(file.SetLength(-1));
}

TEST_F(ClFileTest, ReadTellsFailureFromEndOfFile) {
    const Bytes old = RandomBytes(10, 4);
    const std::string path = Make(old);
    clFile file(Path(path));
    ASSERT_TRUE(file.Open(clFile::kRead));
    Bytes buffer(20);
    bool failed = false;
    EXPECT_EQ(file.Read(buffer.data(), 20, &failed), 10u);
    EXPECT_FALSE(failed);
    EXPECT_TRUE(Bytes(buffer.begin(), buffer.begin() + 10) == old);
    EXPECT_EQ(file.Read(buffer.data(), 20, &failed), 0u);
    EXPECT_FALSE(failed);
    EXPECT_FALSE(file.Write(buffer.data(), 1));   // read-only

    clFile writeOnly(Path(path));
    ASSERT_TRUE(writeOnly.Open(clFile::kWrite));
    EXPECT_EQ(writeOnly.Read(buffer.data(), 5, &failed), 0u);
    EXPECT_TRUE(failed);

    failed = false;
    clFile closed;
    EXPECT_EQ(closed.Read(buffer.data(), 5, &failed), 0u);
    EXPECT_TRUE(failed);
    failed = false;
    EXPECT_EQ(closed.Size(&failed), -1);
    EXPECT_TRUE(failed);
    EXPECT_EQ(closed.Tell(), -1);
    EXPECT_FALSE(closed.Seek(0));
}

TEST_F(ClFileTest, WriteAndSeekPlaces) {
    const std::string path = Make(Bytes{'a', 'b', 'c', 'd'});
    clFile file(Path(path));
    ASSERT_TRUE(file.Open(clFile::kReadWrite));
    ASSERT_TRUE(file.Seek(2));
    EXPECT_TRUE(file.Write("X", 1, clFile::kAtCurrent));
    EXPECT_TRUE(file.Write("E", 1, clFile::kAtEnd));
    EXPECT_TRUE(file.Write("S", 1, clFile::kAtStart));
    EXPECT_EQ(file.Tell(), 1);
    EXPECT_TRUE(file.Seek(-1, clFile::kFromEnd));
    EXPECT_EQ(file.Tell(), 4);
    EXPECT_TRUE(file.Seek(-2, clFile::kFromCurrent));
    EXPECT_EQ(file.Tell(), 2);
    EXPECT_FALSE(file.Seek(-10, clFile::kFromCurrent));
    EXPECT_TRUE(file.Write(nullptr, 0));
    EXPECT_FALSE(file.Write(nullptr, 3));
    EXPECT_TRUE(Load(path) == (Bytes{'S', 'b', 'X', 'd', 'E'}));
}

TEST_F(ClFileTest, OpenErrorsHandlesAndDescriptors) {
    const int before = OpenDescriptorCount();
    {
        const std::string missing = (dir_ / "missing \xC3\xA9.bin").string();
        clFile file(Path(missing));
        errno = 0;
        EXPECT_FALSE(file.Open(clFile::kRead));
        EXPECT_EQ(std::u16string(clFile::OpenErrorText(file.path).View()),
                  u"Error opening file '" + std::u16string(Path(missing).View()) +
                      u"', check no other program has it open. (errno:2)");
        errno = 0;
        EXPECT_EQ(std::u16string(clFile::OpenErrorText(file.path).View()),
                  u"Error opening file '" + std::u16string(Path(missing).View()) +
                      u"', check no other program has it open.");
        EXPECT_EQ(std::u16string(clFile::OpenErrorText(clString()).View()), u"No file specified!");
        EXPECT_FALSE(clFile(clString()).Open(clFile::kRead));
        EXPECT_FALSE(clFile(Path(dir_.string())).Open(clFile::kRead));   // a folder is no file
        EXPECT_EQ(std::u16string(clFile::LongPath(Path(missing)).View()), std::u16string(Path(missing).View()));

        const std::string path = Make(Bytes{1, 2, 3}, "\xC3\xA9t\xC3\xA9.bin");   // UTF-8 name
        clFile owner(Path(path));
        ASSERT_TRUE(owner.Open(clFile::kRead));
        EXPECT_NE(fcntl(static_cast<int>(owner.handle), F_GETFD) & FD_CLOEXEC, 0);
        {
            clFile view = clFile::Borrow(owner);
            EXPECT_FALSE(view.ownsHandle);
            EXPECT_TRUE(view.path.Empty());
            uint8_t byte = 0;
            EXPECT_EQ(view.Read(&byte, 1), 1u);
        }
        uint8_t rest[2] = {};
        EXPECT_EQ(owner.Read(rest, 2), 2u);   // still open, and the view's read moved the shared position
        EXPECT_EQ(rest[0], 2);

        clFile moved(std::move(owner));
        EXPECT_FALSE(owner.IsOpen());
        clFile other(Path(path));
        ASSERT_TRUE(other.Open(clFile::kRead));
        moved = std::move(other);   // closes the handle it held
        EXPECT_TRUE(moved.IsOpen());
        EXPECT_TRUE(moved.Open(clFile::kRead));   // reopening closes first
    }
    EXPECT_EQ(OpenDescriptorCount(), before);
}
