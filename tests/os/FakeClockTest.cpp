#include "os/testing/FakeOS.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

namespace {

TEST(FakeClock, StandsStillUntilItIsMoved)
{
    FakeOS os;
    os.clock().setNow(5000.25);
    EXPECT_EQ(os.clock().msecsPrecise(), 5000.25);
    EXPECT_EQ(os.clock().msecs(), 5000U);
    os.clock().advance(0.75);
    EXPECT_EQ(os.clock().msecsPrecise(), 5001);
}

TEST(FakeClock, MillisecondsWrapAt32BitsAndThePreciseOnesGoOn)
{
    FakeOS os;
    os.clock().setNow(4294967295.0);
    EXPECT_EQ(os.clock().msecs(), 4294967295U);
    os.clock().advance(2);
    EXPECT_EQ(os.clock().msecs(), 1U);
    EXPECT_EQ(os.clock().msecsPrecise(), 4294967297.0);
}

TEST(FakeClock, SleepingMovesTheTimeAndIsRecorded)
{
    FakeOS os;
    os.clock().setNow(100);
    os.clock().sleep(20);
    os.clock().sleep(30);
    EXPECT_EQ(os.clock().msecsPrecise(), 150);
    EXPECT_EQ(os.clock().sleptMs(), 50);
    ASSERT_EQ(os.clock().sleeps().size(), 2U);
    EXPECT_EQ(os.clock().sleeps()[1].ms, 30U);
    EXPECT_EQ(os.clock().sleeps()[1].startedMs, 120);
    os.clock().clearRecords();
    EXPECT_TRUE(os.clock().sleeps().empty());
}

TEST(FakeClock, PlannedActionsRunInOrderAtTheirTimeDuringASleep)
{
    FakeOS os;
    os.clock().setNow(0);
    std::vector<double> at;
    os.clock().at(250, [&] { at.push_back(os.clock().msecsPrecise()); });
    os.clock().after(100, [&] { at.push_back(os.clock().msecsPrecise()); });
    os.clock().at(300.5, [&] { at.push_back(os.clock().msecsPrecise()); });
    os.clock().sleep(300);
    EXPECT_EQ(at, (std::vector<double>{100, 250}));
    EXPECT_EQ(os.clock().msecsPrecise(), 300);
    EXPECT_EQ(os.clock().planned(), 1U);
    os.clock().advance(1);
    EXPECT_EQ(at.back(), 300.5);
}

TEST(FakeClock, AnActionMayPlanTheNextOne)
{
    FakeOS os;
    int runs = 0;
    std::function<void()> again = [&] {
        if (++runs < 3)
            os.clock().after(10, again);
    };
    os.clock().after(10, again);
    os.clock().advance(30);
    EXPECT_EQ(runs, 3);
}

TEST(FakeClock, AnotherThreadSleepsUntilTheDrivingOneHasMovedTheTime)
{
    FakeOS os;
    std::atomic<bool> awake{false};
    std::thread sleeper([&] {
        os.clock().sleep(100);
        awake = true;
    });
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    os.clock().advance(99);
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    EXPECT_FALSE(awake);
    os.clock().advance(1);
    sleeper.join();
    EXPECT_TRUE(awake);
    EXPECT_EQ(os.clock().msecsPrecise() - os.clock().sleeps()[0].startedMs, 100);
}

TEST(FakeClock, RealTimeGoesOnFromWhereItStands)
{
    FakeOS os;
    os.clock().setNow(7000);
    os.clock().useRealTime();
    os.clock().sleep(2);
    EXPECT_GE(os.clock().msecsPrecise(), 7002);
    const double before = os.clock().msecsPrecise();
    os.clock().advance(1000000);
    EXPECT_GE(os.clock().msecsPrecise(), before + 1000000);
}

TEST(FakeClock, InRealTimePlannedActionsRunWhileTheDrivingThreadWaits)
{
    FakeOS os;
    os.clock().useRealTime();
    const Qz::Ptr<iThreadEvent> event = os.getThreadServices()->createEvent(0, 0, nullptr);
    os.clock().after(3, [&] { event->set(); });
    event->wait();
    EXPECT_EQ(os.clock().planned(), 0U);
}

}  // namespace
