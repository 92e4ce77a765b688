#include "os/BriefLook.h"

#include "os/BusyWait.h"

#include <gtest/gtest.h>

namespace {

// How often a thread asks for work that is never there before it sleeps.
unsigned looks(os::BriefLook& brief)
{
    unsigned count = 0;
    EXPECT_FALSE(brief.look([&count] {
        ++count;
        return false;
    }));
    return count;
}

// A round of work and the wait for the next one, which comes at once. Where the test is held up meanwhile the
// wait is a long one, so it may take several.
void workUntilItLooks(os::BriefLook& brief, unsigned depth)
{
    for (unsigned tries = 0; tries < 10'000; ++tries) {
        brief.worked(depth);
        looks(brief);
        brief.came();
        if (looks(brief) != 0)
            return;
    }
    FAIL() << "it never looked";
}

}  // namespace

TEST(BriefLook, NobodyLooksBeforeThereWasWork)
{
    os::BriefLook brief;
    EXPECT_EQ(looks(brief), 0U);
    brief.worked(32);
    EXPECT_EQ(looks(brief), 0U);
}

TEST(BriefLook, AQueueOfOneMakesNobodyLook)
{
    os::BriefLook brief;
    for (unsigned round = 0; round < 100; ++round) {
        brief.worked(1);
        EXPECT_EQ(looks(brief), 0U);
        brief.came();
    }
}

TEST(BriefLook, ADeepQueueWhoseWorkComesSoonIsLookedAt)
{
    os::BriefLook brief;
    workUntilItLooks(brief, 2);
    EXPECT_TRUE(brief.look([] { return true; }));
}

TEST(BriefLook, AWaitWithoutWorkEndsTheLooking)
{
    os::BriefLook brief;
    workUntilItLooks(brief, 32);
    brief.cameNot();
    EXPECT_EQ(looks(brief), 0U);
}

TEST(BriefLook, ALongWaitEndsTheLooking)
{
    os::BriefLook brief;
    workUntilItLooks(brief, 32);
    const auto end = os::BriefLook::Clock::now() + std::chrono::milliseconds(1);
    looks(brief);
    while (os::BriefLook::Clock::now() < end) {
    }
    brief.came();
    EXPECT_EQ(looks(brief), 0U);
}

TEST(BriefLook, AQueueThatIsDeepNoMoreIsForgottenAfterSomeRounds)
{
    os::BriefLook brief;
    workUntilItLooks(brief, 32);
    for (unsigned round = 0; round < 64; ++round)
        brief.worked(1);
    looks(brief);
    brief.came();
    EXPECT_EQ(looks(brief), 0U);
}

TEST(BriefLook, ABusyWaitLooksForASingleTransferToo)
{
    os::setBusyWait(60'000'000);
    os::BriefLook brief;
    EXPECT_EQ(looks(brief), 0U);  // nothing goes on yet
    brief.came();
    brief.worked(1);
    unsigned count = 0;
    EXPECT_TRUE(brief.look([&count] { return ++count == 1000; }));
    brief.cameNot();
    EXPECT_EQ(looks(brief), 0U);
    os::setBusyWait(0);
}
