#include "Qz/Vector.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

const std::string line = "assertion failed i < size_ at ole/Qz/Vector line 62\n";

Vector<int> filled(std::initializer_list<int> items)
{
    Vector<int> made;
    for (const int item : items)
        made.add(item);
    return made;
}

std::vector<int> listOf(const Vector<int>& items) { return {items.begin(), items.end()}; }

using List = std::vector<int>;

}  // namespace

TEST(Vector, RoomForItemsIsNotItems)
{
    const Vector<int> items(40);
    EXPECT_EQ(items.size(), 0u);
    EXPECT_TRUE(items.empty());
    EXPECT_GE(items.capacity(), 40u);
}

TEST(Vector, ItemsAreAppendedInOrder) { EXPECT_EQ(listOf(filled({3, 1, 2})), (List{3, 1, 2})); }

TEST(Vector, AnItemOfTheVectorItselfCanBeAddedAndInserted)
{
    const std::string onTheHeap(100, 'x');
    Vector<std::string> items;
    items.add(onTheHeap);
    for (int i = 0; i < 10; ++i)
        items.add(items[0]);
    items.insert(items[10], 0);
    EXPECT_EQ(items.size(), 12u);
    for (const std::string& item : items)
        EXPECT_EQ(item, onTheHeap);
}

TEST(Vector, InsertingPutsTheItemBeforeTheIndex)
{
    Vector<int> items = filled({1, 3});
    items.insert(2, 1);
    items.insert(0, 0);
    EXPECT_EQ(listOf(items), (List{0, 1, 2, 3}));
}

TEST(Vector, InsertingAtOrPastTheEndAppends)
{
    Vector<int> items;
    items.insert(1, 0);
    items.insert(2, 1);
    items.insert(3, 100);
    EXPECT_EQ(listOf(items), (List{1, 2, 3}));
}

TEST(Vector, RemovingClosesTheGap)
{
    Vector<int> items = filled({0, 1, 2, 3, 4});
    items.remove(1, 2);
    EXPECT_EQ(listOf(items), (List{0, 3, 4}));
    items.removeIdx(0);
    EXPECT_EQ(listOf(items), (List{3, 4}));
}

TEST(Vector, RemovingPastTheEndIsIgnored)
{
    Vector<int> items = filled({0, 1, 2});
    items.remove(3, 1);
    items.remove(0xFFFFFFFFu, 0xFFFFFFFFu);
    items.remove(1, 0);
    EXPECT_EQ(items.size(), 3u);
    items.remove(1, 0xFFFFFFFFu);
    EXPECT_EQ(listOf(items), List{0});
}

TEST(Vector, LocateAnswersTheFirstEqualItemOrMinusOne)
{
    const Vector<int> items = filled({7, 8, 7});
    EXPECT_EQ(items.locate(7), 0);
    EXPECT_EQ(items.locate(8), 1);
    EXPECT_EQ(items.locate(9), -1);
}

TEST(Vector, RemovingAnItemTakesTheFirstEqualOneOnly)
{
    Vector<int> items = filled({7, 8, 7});
    EXPECT_TRUE(items.removeItem(7));
    EXPECT_EQ(listOf(items), (List{8, 7}));
    EXPECT_FALSE(items.removeItem(9));
    EXPECT_EQ(items.size(), 2u);
}

TEST(Vector, ConsumingAppendsAllItemsAndEmptiesTheOther)
{
    Vector<int> items = filled({1});
    Vector<int> other = filled({2, 3});
    items.consume(other);
    EXPECT_EQ(listOf(items), (List{1, 2, 3}));
    EXPECT_TRUE(other.empty());
}

TEST(Vector, ConsumingItselfChangesNothing)
{
    Vector<int> items = filled({1, 2});
    items.consume(items);
    EXPECT_EQ(listOf(items), (List{1, 2}));
}

TEST(Vector, AnIndexOutOfRangePrintsTheAssertionAndYieldsADefaultElement)
{
    const Vector<std::string> items;
    testing::internal::CaptureStdout();
    const std::string element = items[0];
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line);
    EXPECT_EQ(element, "");
}

TEST(Vector, AnIndexInRangePrintsNothing)
{
    Vector<int> items = filled({1, 2});
    testing::internal::CaptureStdout();
    items[1] = 5;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(items[1], 5);
}

TEST(Vector, WhatIsWrittenOutOfRangeIsLost)
{
    Vector<int> items = filled({1});
    testing::internal::CaptureStdout();
    items[1] = 5;
    EXPECT_EQ(items[1], 0);
    EXPECT_EQ(items[0xFFFFFFFFu], 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line + line);
    EXPECT_EQ(listOf(items), List{1});
}

TEST(Vector, ThreadsWithWrongIndicesDoNotShareTheElement)
{
    testing::internal::CaptureStdout();
    Vector<std::string> items;
    std::string& mine = items[0];
    mine = "mine";
    bool shared = true;
    std::thread([&] {
        Vector<std::string> others;
        shared = &others[0] == &mine;
    }).join();
    EXPECT_FALSE(shared);
    EXPECT_EQ(mine, "mine");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line);
}
