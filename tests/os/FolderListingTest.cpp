#include "os/FolderListing.h"

#include <gtest/gtest.h>

TEST(FolderListing, GivesBackNamesAndSizesInTheirOrder)
{
    FolderListing files;
    EXPECT_TRUE(files.empty());
    files.add(L"b.mov", 7);
    files.addUTF8("\xc3\xa9\xff", 0);
    files.add(L"", 1);
    files.add(L"a", ~std::uint64_t{0});
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[0].name, L"b.mov");
    EXPECT_EQ(files[0].size, 7u);
    EXPECT_EQ(files[1].name, L"\u00e9\xdcff");
    EXPECT_EQ(files[2].name, L"");
    EXPECT_EQ(files[3].name, L"a");
    EXPECT_EQ(files[3].size, ~std::uint64_t{0});
}

TEST(FolderListing, IsEmptyAfterClear)
{
    FolderListing files;
    files.add(L"old", 1);
    files.clear();
    EXPECT_TRUE(files.empty());
    files.add(L"new", 2);
    EXPECT_EQ(files[0].name, L"new");
}
