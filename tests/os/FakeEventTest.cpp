#include "os/testing/FakeOS.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

namespace {

Qz::Ptr<iThreadEvent> make(FakeOS& os, unsigned manualReset, unsigned signalled = 0)
{
    return os.getThreadServices()->createEvent(manualReset, signalled, nullptr);
}

TEST(FakeEvent, AutoResetRemembersSetsAsOneAndClearsItself)
{
    FakeOS os;
    const auto event = make(os, 0);
    event->set();
    event->set();
    EXPECT_TRUE(event->wait(0));
    EXPECT_FALSE(event->wait(0));
}

TEST(FakeEvent, ManualResetStaysSetUntilReset)
{
    FakeOS os;
    const auto event = make(os, 1);
    EXPECT_FALSE(event->wait(0));
    event->set();
    event->wait();
    EXPECT_TRUE(event->wait(0));
    event->reset();
    EXPECT_FALSE(event->wait(0));
}

TEST(FakeEvent, MayBeSignalledFromTheStart)
{
    FakeOS os;
    EXPECT_TRUE(make(os, 0, 1)->wait(0));
    EXPECT_TRUE(make(os, 1, 1)->wait(0));
}

TEST(FakeEvent, ABoundedWaitTakesItsWholeTimeWhenNobodySets)
{
    FakeOS os;
    os.clock().setNow(1000);
    EXPECT_FALSE(make(os, 0)->wait(4000));
    EXPECT_EQ(os.clock().msecsPrecise(), 5000);
    ASSERT_EQ(os.clock().waits().size(), 1U);
    const fake::WaitRecord wait = os.clock().waits()[0];
    EXPECT_EQ(wait.timeoutMs, 4000U);
    EXPECT_FALSE(wait.signalled);
    EXPECT_EQ(wait.startedMs, 1000);
    EXPECT_EQ(wait.tookMs, 4000);
}

TEST(FakeEvent, APlannedActionEndsTheWaitAtItsTime)
{
    FakeOS os;
    const auto event = make(os, 0);
    os.clock().after(1000, [&] { event->set(); });
    EXPECT_TRUE(event->wait(4000));
    EXPECT_EQ(os.clock().waits()[0].tookMs, 1000);
    EXPECT_TRUE(os.clock().waits()[0].signalled);
}

TEST(FakeEvent, AnActionAtTheVeryLimitStillEndsTheWait)
{
    FakeOS os;
    const auto event = make(os, 0);
    os.clock().after(4000, [&] { event->set(); });
    EXPECT_TRUE(event->wait(4000));
}

TEST(FakeEvent, AResetRightBehindTheSetDoesNotTakeAWaiterBack)
{
    FakeOS os;
    for (const unsigned manualReset : {0U, 1U}) {
        const auto event = make(os, manualReset);
        os.clock().after(10, [&] {
            event->set();
            event->reset();
        });
        EXPECT_TRUE(event->wait(4000));
        EXPECT_FALSE(event->wait(0));
    }
}

TEST(FakeEvent, OneSetLetsOneWaiterThroughAnAutoResetEvent)
{
    FakeOS os;
    const auto event = make(os, 0);
    std::atomic<int> through{0};
    const auto body = [&] {
        event->wait();
        ++through;
    };
    std::thread first(body);
    std::thread second(body);
    ASSERT_TRUE(os.clock().awaitOthersWaiting(2));
    event->set();
    EXPECT_EQ(os.threads().events()[0].waiting, 1U);
    EXPECT_FALSE(os.threads().events()[0].signalled);
    event->set();
    first.join();
    second.join();
    EXPECT_EQ(through, 2);
    EXPECT_FALSE(event->wait(0));
}

TEST(FakeEvent, OneSetLetsEverybodyThroughAManualResetEvent)
{
    FakeOS os;
    const auto event = make(os, 1);
    std::thread first([&] { event->wait(); });
    std::thread second([&] { event->wait(); });
    ASSERT_TRUE(os.clock().awaitOthersWaiting(2));
    event->set();
    event->reset();
    first.join();
    second.join();
    EXPECT_FALSE(event->wait(0));
}

TEST(FakeEvent, TheIdleHandlerIsAskedBeforeTimePasses)
{
    FakeOS os;
    const auto event = make(os, 0);
    int asked = 0;
    os.clock().setIdleHandler([&] {
        if (++asked == 3)
            event->set();
        return true;
    });
    event->wait();
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(os.clock().waits()[0].tookMs, 0);
}

TEST(FakeEvent, AnIdleHandlerWithoutProgressLetsTimePass)
{
    FakeOS os;
    int asked = 0;
    os.clock().setIdleHandler([&] {
        ++asked;
        return false;
    });
    EXPECT_FALSE(make(os, 0)->wait(50));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(os.clock().waits()[0].tookMs, 50);
}

TEST(FakeEvent, AWaitInsideTheIdleHandlerDoesNotStartItAgain)
{
    FakeOS os;
    const auto inner = make(os, 0);
    int asked = 0;
    os.clock().setIdleHandler([&] {
        ++asked;
        inner->wait(10);
        return false;
    });
    EXPECT_FALSE(make(os, 0)->wait(50));
    EXPECT_EQ(asked, 1);
}

TEST(FakeEvent, AWaitWithoutTimeIsNoReasonToAskTheIdleHandler)
{
    FakeOS os;
    os.clock().setIdleHandler([] { return ADD_FAILURE() << "asked", false; });
    EXPECT_FALSE(make(os, 0)->wait(0));
}

TEST(FakeEvent, AWaiterMayDropTheLastReferenceAsSoonAsItWakes)
{
    FakeOS os(FakeOS::Mode::realThreads);
    for (int round = 0; round < 200; ++round) {
        auto* event = new Qz::Ptr<iThreadEvent>(make(os, 0));
        iThreadEvent* raw = event->get();
        std::thread waiter([event] {
            (*event)->wait();
            delete event;
        });
        raw->set();
        waiter.join();
    }
    EXPECT_EQ(os.live().events, 0U);
}

TEST(FakeEvent, IsRecordedWithItsArgumentsAndCounts)
{
    FakeOS os;
    auto event = os.getThreadServices()->createEvent(1, 0, "named");
    event->set();
    event->reset();
    event->set();
    event->wait();
    const auto unnamed = make(os, 0, 1);
    const std::vector<fake::EventRecord> events = os.threads().events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].manualReset, 1U);
    EXPECT_EQ(events[0].initiallySignalled, 0U);
    EXPECT_EQ(events[0].name, "named");
    EXPECT_EQ(events[0].sets, 2U);
    EXPECT_EQ(events[0].resets, 1U);
    EXPECT_EQ(events[0].waits, 1U);
    EXPECT_TRUE(events[0].signalled);
    EXPECT_FALSE(events[1].hasName);
    EXPECT_EQ(events[1].initiallySignalled, 1U);
    EXPECT_EQ(os.live().events, 2U);
    event.reset();
    EXPECT_EQ(os.live().events, 1U);
    EXPECT_FALSE(os.threads().events()[0].alive);
}

TEST(FakeEvent, OutlivesItsPlatform)
{
    Qz::Ptr<iThreadEvent> event;
    {
        FakeOS os;
        event = make(os, 0);
    }
    event->set();
    EXPECT_TRUE(event->wait(5));
    EXPECT_FALSE(event->wait(5));
}

TEST(FakeEventDeathTest, AWaitThatNothingCanEndStopsTheTest)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            FakeOS os;
            os.clock().setPatience(20);
            make(os, 0)->wait();
        },
        "waits without limit");
}

TEST(FakeEventDeathTest, AnIdleHandlerThatAlwaysTellsProgressStopsTheTest)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            FakeOS os;
            os.clock().setIdleHandler([] { return true; });
            make(os, 0)->wait();
        },
        "tells progress for ever");
}

TEST(FakeEvent, AnUnlimitedWaitIsEndedByAThreadOfTheTest)
{
    FakeOS os;
    const auto event = make(os, 0);
    std::thread other([&] { event->set(); });
    event->wait();
    other.join();
    EXPECT_EQ(os.clock().waits()[0].tookMs, 0);
}

}  // namespace
