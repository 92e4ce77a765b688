#include "fsys/DriveId.h"

#include <unordered_set>

#include <gtest/gtest.h>

TEST(DriveId, PrintsAsItsOneCharacter)
{
    EXPECT_EQ(DriveId('D').asString(), "D");
    EXPECT_EQ(DriveId('D').asString().size(), 1u);
    EXPECT_EQ(DriveId('0').asString(), "0");
}

TEST(DriveId, OnlyTheCharacterZeroNamesNoDrive)
{
    EXPECT_FALSE(DriveId('0').valid());
    EXPECT_TRUE(DriveId('1').valid());
    EXPECT_TRUE(DriveId('\0').valid());
    EXPECT_TRUE(DriveId('\xff').valid());
}

TEST(DriveId, NamesNoDriveWhenDefaultConstructed)
{
    EXPECT_EQ(DriveId(), DriveId('0'));
    EXPECT_EQ(DriveId().asChar(), '0');
}

TEST(DriveId, ComparesByCharacterAndCaseMatters)
{
    const DriveId id('a');
    const DriveId copy = id;
    EXPECT_EQ(copy, id);
    EXPECT_NE(id, DriveId('A'));
    EXPECT_LT(DriveId('1'), DriveId('2'));
}

TEST(DriveId, IsOneCharacterLarge) { EXPECT_EQ(sizeof(DriveId), 1u); }

TEST(DriveId, CanBeAKeyOfAHashTable)
{
    const std::unordered_set<DriveId> ids = {DriveId('1'), DriveId('2'), DriveId('1')};
    EXPECT_EQ(ids.size(), 2u);
    EXPECT_EQ(ids.count(DriveId('2')), 1u);
}
