// clPtrList growth, clStringList building and clBuffer sizing.

#include <gtest/gtest.h>

#include <vector>

#include "support/clBuffer.h"
#include "support/clList.h"

namespace {

std::vector<std::u16string> Entries(const clStringList& list) {
    std::vector<std::u16string> out;
    for (int i = 0; i < list.Count(); ++i) out.emplace_back(list[i].View());
    return out;
}

using V = std::vector<std::u16string>;

}  // namespace

TEST(ClPtrList, GrowsByADoublingStepAndKeepsOrder) {
    std::vector<int> values(2000);
    clPtrList<int> list;
    EXPECT_EQ(list.Capacity(), 16);
    std::vector<int> capacities;
    for (int i = 0; i < 2000; ++i) {
        values[static_cast<size_t>(i)] = i;
        list.Add(&values[static_cast<size_t>(i)]);
        if (capacities.empty() || capacities.back() != list.Capacity()) capacities.push_back(list.Capacity());
    }
    EXPECT_EQ(capacities, (std::vector<int>{16, 48, 112, 240, 496, 1008, 2032}));
    EXPECT_EQ(list.Growth(), 2048);
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(*list[i], i);

    list.RemoveAt(0);
    list.RemoveAt(5000);
    list.Insert(1, &values[1999]);
    EXPECT_EQ(*list[0], 1);
    EXPECT_EQ(*list[1], 1999);
    EXPECT_EQ(*list[2], 2);
    EXPECT_EQ(list.Count(), 2000);

    clPtrList<int> moved(std::move(list));
    EXPECT_EQ(moved.Count(), 2000);
    EXPECT_EQ(list.Count(), 0);
    EXPECT_EQ(list.Capacity(), 16);

    clPtrList<int> small;
    small.Add(&values[3]);
    clPtrList<int> smallMoved(std::move(small));   // inline slots must travel too
    EXPECT_EQ(*smallMoved[0], 3);
}

TEST(ClStringList, FromMultiStringAndSplit) {
    clStringList list;
    list.FromMultiString(u"one\0[Empty]\0three\0\0ignored\0");
    EXPECT_EQ(Entries(list), (V{u"one", u"", u"three"}));
    list.FromMultiString(u"\0");
    EXPECT_EQ(list.Count(), 0);
    list.AddCopy(clString(u"x"));
    list.FromMultiString(nullptr);
    EXPECT_EQ(list.Count(), 0);

    list.Split(clString(u"a\rb\r\rc\r"));
    EXPECT_EQ(Entries(list), (V{u"a", u"b", u"", u"c", u""}));
    list.Split(clString(u"\r"));
    EXPECT_EQ(Entries(list), (V{u"", u""}));
    list.Split(clString(u"single"));
    EXPECT_EQ(Entries(list), (V{u"single"}));
    list.Split(clString());
    EXPECT_EQ(list.Count(), 0);
    list.Split(clString(u"x\ry"));
    list.Split(list[1]);   // the text may come from the list itself
    EXPECT_EQ(Entries(list), (V{u"y"}));
}

TEST(ClStringList, CopiesAndTakes) {
    clStringList a;
    a.AddCopy(clString(u"one"), 11);
    a.AddMove(clString(u"two"));
    EXPECT_EQ(a[0].tag, 11u);
    a.AppendCopies(a);
    EXPECT_EQ(Entries(a), (V{u"one", u"two", u"one", u"two"}));

    clStringList b;
    b.AddCopy(clString(u"zero"));
    b.TakeAll(a);
    EXPECT_EQ(Entries(b), (V{u"zero", u"one", u"two", u"one", u"two"}));
    EXPECT_EQ(a.Count(), 0);
}

TEST(ClBuffer, GrowsWithoutCopyingAndShrinksInPlace) {
    clBuffer buffer;
    EXPECT_TRUE(buffer.Resize(0));
    EXPECT_NE(buffer.Data(), nullptr);   // at least one byte
    EXPECT_EQ(buffer.Capacity(), 1u);

    ASSERT_TRUE(buffer.Resize(100, true));
    for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(buffer.Data()[i], 0);
    buffer.Data()[0] = 0xAB;
    buffer.readCursor = 90;
    buffer.writeCursor = 100;
    const uint8_t* block = buffer.Data();
    ASSERT_TRUE(buffer.Resize(50));
    EXPECT_EQ(buffer.Data(), block);
    EXPECT_EQ(buffer.Data()[0], 0xAB);
    EXPECT_EQ(buffer.Size(), 50u);
    EXPECT_EQ(buffer.Capacity(), 100u);
    EXPECT_EQ(buffer.readCursor, 50u);
    EXPECT_EQ(buffer.writeCursor, 50u);

    const uint8_t bytes[] = {1, 2, 3};
    ASSERT_TRUE(buffer.Assign(bytes, 3));
    const clBuffer copy = buffer;
    EXPECT_EQ(copy.Data()[2], 3);
    EXPECT_FALSE(buffer.Assign(nullptr, 2));
}
