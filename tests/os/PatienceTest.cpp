#include "os/Patience.h"

#include <gtest/gtest.h>
#include <limits>
#include <thread>

using os::Patience;

TEST(Patience, TheUsualLimitHoldsWhereNoneIsSet)
{
    EXPECT_FALSE(Patience::isSet());
    EXPECT_EQ(Patience::limitMs(2000), 2000U);
}

TEST(Patience, TheInnermostCountsAndEachEndsWithItsScope)
{
    {
        const Patience outer(100);
        {
            const Patience inner(7);
            EXPECT_EQ(Patience::limitMs(2000), 7U);
        }
        EXPECT_EQ(Patience::limitMs(2000), 100U);
        EXPECT_TRUE(Patience::isSet());
    }
    EXPECT_FALSE(Patience::isSet());
}

TEST(Patience, ZeroIsForEver)
{
    const Patience patience(0);
    EXPECT_EQ(Patience::limitMs(2000), std::numeric_limits<unsigned>::max());
}

TEST(Patience, OtherThreadsKeepTheirOwn)
{
    const Patience patience(5);
    std::thread([] { EXPECT_FALSE(Patience::isSet()); }).join();
}
