#include "os/linux/LinuxThreadEvent.h"

#include "Qz/Ptr.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr unsigned longMs = 60'000;

using Event = Qz::Ptr<LinuxThreadEvent>;

Event make(bool manualReset, bool signalled = false)
{
    return Event(new LinuxThreadEvent(manualReset, signalled));
}

// Returns once the thread is inside its wait, to the extent that one can know it from outside.
void awaitWaiters(const Event& event, unsigned count)
{
    while (event->waiterCount() < count)
        std::this_thread::yield();
}

}  // namespace

// Setting and resetting again at once must not lose whoever waited at the set.
TEST(ThreadEvent, AWaiterWakesAlthoughResetFollowsTheSet)
{
    for (const bool manualReset : {false, true}) {
        for (int i = 0; i < 300; ++i) {
            const Event event = make(manualReset);
            std::atomic<bool> woke{false};
            std::thread waiter([&] { woke = event->wait(longMs); });
            awaitWaiters(event, 1);
            event->set();
            event->reset();
            waiter.join();
            ASSERT_TRUE(woke);
            ASSERT_FALSE(event->wait(0));
        }
    }
}

TEST(ThreadEvent, ASetReleasesAllWaitersOfAManualResetEventAndOneOfAnAutoResetOne)
{
    for (const bool manualReset : {false, true}) {
        const Event event = make(manualReset);
        std::atomic<unsigned> woke{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 3; ++i)
            waiters.emplace_back([&] { woke += event->wait(longMs) ? 1U : 0U; });
        awaitWaiters(event, 3);
        event->set();
        EXPECT_EQ(event->waiterCount(), manualReset ? 0U : 2U);
        event->reset();
        if (!manualReset) {
            event->set();
            event->set();
        }
        for (std::thread& waiter : waiters)
            waiter.join();
        EXPECT_EQ(woke, 3U);
        EXPECT_FALSE(event->wait(0));
    }
}

// A signal belongs to whoever waited for it, not to the next thread that comes along.
TEST(ThreadEvent, ANewWaiterDoesNotTakeTheSignalOfOneThatWaited)
{
    for (int i = 0; i < 300; ++i) {
        const Event event = make(false);
        std::atomic<bool> woke{false};
        std::thread waiter([&] { woke = event->wait(longMs); });
        awaitWaiters(event, 1);
        event->set();
        ASSERT_FALSE(event->wait(0));
        waiter.join();
        ASSERT_TRUE(woke);
    }
}

TEST(ThreadEvent, AWaiterThatGaveUpTakesNoSignalWithIt)
{
    const Event event = make(false);
    EXPECT_FALSE(event->wait(1));
    EXPECT_EQ(event->waiterCount(), 0U);
    event->set();
    EXPECT_TRUE(event->wait(0));
}

TEST(ThreadEvent, WaitersLeaveInAnyOrderByTime)
{
    const Event event = make(false);
    std::atomic<unsigned> woke{0};
    std::thread patient([&] { woke += event->wait(longMs) ? 1U : 0U; });
    awaitWaiters(event, 1);
    std::thread hasty([&] { woke += event->wait(5) ? 100U : 0U; });
    std::thread alsoPatient([&] { woke += event->wait(longMs) ? 1U : 0U; });
    hasty.join();
    awaitWaiters(event, 2);
    event->set();
    event->set();
    patient.join();
    alsoPatient.join();
    EXPECT_EQ(woke, 2U);
}

// Two completing threads set and reset while a third waits with a limit: no set may go unnoticed.
TEST(ThreadEvent, SettersAndResettersDoNotStarveAWaiter)
{
    const Event event = make(false);
    std::atomic<bool> stop{false};
    std::atomic<unsigned> sets{0};
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i) {
        others.emplace_back([&] {
            while (!stop) {
                event->set();
                ++sets;
                event->reset();
            }
        });
    }
    for (int i = 0; i < 200; ++i)
        EXPECT_TRUE(event->wait(longMs));
    stop = true;
    for (std::thread& other : others)
        other.join();
    EXPECT_GT(sets, 0U);
}

TEST(ThreadEvent, MixedSignalsAndTimeoutsKeepTheCount)
{
    const Event event = make(false);
    std::atomic<unsigned> taken{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            while (!stop)
                taken += event->wait(1) ? 1U : 0U;
        });
    unsigned given = 0;
    for (int i = 0; i < 3000; ++i, ++given)
        event->set();
    stop = true;
    for (std::thread& waiter : waiters)
        waiter.join();
    taken += event->wait(0) ? 1U : 0U;
    EXPECT_GE(taken, 1U);
    EXPECT_LE(taken, given);
    EXPECT_FALSE(event->wait(0));
    EXPECT_EQ(event->waiterCount(), 0U);
}
