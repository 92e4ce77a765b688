#include "media/MediaError.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

TEST(MediaError, EveryCodeHasANameOfItsOwn)
{
    constexpr int last = static_cast<int>(MediaErrorCode::renameFailed);
    std::set<std::string> names;
    for (int code = 0; code <= last; ++code)
        names.insert(nameOf(static_cast<MediaErrorCode>(code)));
    EXPECT_EQ(names.size(), std::size_t{last} + 1);
    EXPECT_FALSE(names.contains("unknown"));
    EXPECT_STREQ(nameOf(MediaErrorCode::none), "none");
    EXPECT_STREQ(nameOf(MediaErrorCode::fileShrank), "fileShrank");
}

TEST(MediaError, ACodeOfANewerLibraryIsUnknown)
{
    EXPECT_STREQ(nameOf(static_cast<MediaErrorCode>(static_cast<int>(MediaErrorCode::renameFailed) + 1)),
                 "unknown");
}

}  // namespace
