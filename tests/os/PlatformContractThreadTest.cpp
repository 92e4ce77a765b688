// What the contract suite says about events, threads, time and page memory.

#include "PlatformContract.h"
#include "os/LastError.h"

#include <atomic>
#include <cstdint>

namespace {

using Event = Qz::Ptr<iThreadEvent>;

constexpr unsigned longMs = 60'000;

struct Flag
{
    std::atomic<int> value{0};
    Event event;
    Event started;
};

}  // namespace

// --- events

TEST_P(PlatformContract, AnEventBeginsAsItWasAskedFor)
{
    EXPECT_FALSE(platform().threads().createEvent(0, 0, nullptr)->wait(0));
    EXPECT_FALSE(platform().threads().createEvent(1, 0, nullptr)->wait(0));
    EXPECT_TRUE(platform().threads().createEvent(0, 1, nullptr)->wait(0));
    EXPECT_TRUE(platform().threads().createEvent(1, 1, nullptr)->wait(0));
}

TEST_P(PlatformContract, AnAutoResetEventRemembersASetAndLetsOneWaitThrough)
{
    const Event event = platform().threads().createEvent(0, 0, nullptr);
    event->set();
    event->set();
    EXPECT_TRUE(event->wait(longMs));
    EXPECT_FALSE(event->wait(0));
}

TEST_P(PlatformContract, AManualResetEventStaysSetUntilReset)
{
    const Event event = platform().threads().createEvent(1, 0, nullptr);
    event->set();
    event->wait();
    EXPECT_TRUE(event->wait(longMs));
    event->set();
    EXPECT_TRUE(event->wait(0));
    event->reset();
    EXPECT_FALSE(event->wait(0));
}

TEST_P(PlatformContract, ResetForgetsARememberedSet)
{
    const Event event = platform().threads().createEvent(0, 1, nullptr);
    event->reset();
    EXPECT_FALSE(event->wait(0));
    event->reset();
    event->set();
    EXPECT_TRUE(event->wait(0));
}

TEST_P(PlatformContract, AWaitThatIsNotSignalledEndsAfterItsTime)
{
    const Event event = platform().threads().createEvent(0, 0, nullptr);
    const double before = platform().clock().msecsPrecise();
    EXPECT_FALSE(event->wait(30));
    EXPECT_GE(platform().clock().msecsPrecise() - before, 30.0);
}

TEST_P(PlatformContract, AManualResetEventReleasesAllWhoWait)
{
    const Event event = platform().threads().createEvent(1, 0, nullptr);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] { released += event->wait(longMs) ? 1 : 0; });
    event->set();
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(released, 4);
}

TEST_P(PlatformContract, EverySetOfAnAutoResetEventReleasesAtMostOne)
{
    const Event event = platform().threads().createEvent(0, 0, nullptr);
    const Event passed = platform().threads().createEvent(0, 0, nullptr);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            event->wait();
            ++released;
            passed->set();
        });
    for (int i = 1; i <= 4; ++i) {
        event->set();
        ASSERT_TRUE(passed->wait(longMs));
        EXPECT_EQ(released, i);
    }
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_FALSE(event->wait(0));
}

// Two threads play kick and pass: a lost signal would leave one of them waiting for a minute.
TEST_P(PlatformContract, NoSignalIsLostBetweenThreads)
{
    const Event ping = platform().threads().createEvent(0, 0, nullptr);
    const Event pong = platform().threads().createEvent(0, 0, nullptr);
    constexpr int rounds = 5000;
    int value = 0;  // handed to and fro by the events alone
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            if (!ping->wait(longMs))
                return;
            ++value;
            pong->set();
        }
    });
    int seen = 0;
    for (int i = 0; i < rounds; ++i) {
        ping->set();
        if (!pong->wait(longMs))
            break;
        seen = value;
    }
    other.join();
    EXPECT_EQ(seen, rounds);
}

TEST_P(PlatformContract, AWaiterMayDropTheLastReferenceAsSoonAsItWakes)
{
    for (int i = 0; i < 2000; ++i) {
        iThreadEvent* setter = nullptr;
        Event event = platform().threads().createEvent(static_cast<unsigned>(i % 2), 0, nullptr);
        setter = event.get();
        std::thread waiter([owned = std::move(event)]() mutable {
            EXPECT_TRUE(owned->wait(longMs));
            owned.reset();
        });
        setter->set();
        waiter.join();
    }
}

// --- threads

TEST_P(PlatformContract, AThreadRunsItsBodyAndEndingWaitsForIt)
{
    Flag flag;
    flag.event = platform().threads().createEvent(0, 0, nullptr);
    const auto body = [](void* argument) {
        auto* given = static_cast<Flag*>(argument);
        given->event->wait();
        std::this_thread::yield();
        given->value = 1;
        return 0;
    };
    const unsigned id = platform().threads().createThread(body, "contract", 0, &flag, 1, 0);
    ASSERT_NE(id, 0U);
    EXPECT_NE(id & 0xFFFF, 0U);
    EXPECT_EQ(flag.value, 0);
    flag.event->set();
    platform().threads().endThread(id & 0xFFFF);
    EXPECT_EQ(flag.value, 1);
}

TEST_P(PlatformContract, ThreadsThatLiveTogetherHaveDifferentSlots)
{
    Flag flag;
    flag.event = platform().threads().createEvent(1, 0, nullptr);
    const auto body = [](void* argument) {
        auto* given = static_cast<Flag*>(argument);
        given->event->wait();
        ++given->value;
        return 0;
    };
    std::vector<unsigned> ids;
    for (int i = 0; i < 5; ++i)
        ids.push_back(platform().threads().createThread(body, nullptr, 0, &flag, 1, 0));
    for (std::size_t i = 0; i < ids.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_NE(ids[i] & 0xFFFF, ids[j] & 0xFFFF);
    flag.event->set();
    for (const unsigned id : ids)
        platform().threads().endThread(id & 0xFFFF);
    EXPECT_EQ(flag.value, 5);
}

TEST_P(PlatformContract, AnIdIsNotUsedAgainAtOnce)
{
    const auto body = [](void*) { return 0; };
    const unsigned first = platform().threads().createThread(body, "a", 0, nullptr, 1, 0);
    platform().threads().endThread(first & 0xFFFF);
    const unsigned second = platform().threads().createThread(body, "b", 0, nullptr, 1, 0);
    platform().threads().endThread(second & 0xFFFF);
    EXPECT_NE(first, second);
}

TEST_P(PlatformContract, EndingAnUnknownThreadDoesNothing)
{
    platform().threads().endThread(0);
    platform().threads().endThread(0xFFFF);
    platform().threads().endThread(12345);
    const auto body = [](void*) { return 0; };
    const unsigned id = platform().threads().createThread(body, "a", 0, nullptr, 1, 0);
    ASSERT_NE(id, 0U);
    platform().threads().endThread(id & 0xFFFF);
    platform().threads().endThread(id & 0xFFFF);
}

TEST_P(PlatformContract, AThreadThatEndsItselfGoesOnAlone)
{
    struct Given
    {
        iThreadServices* threads;
        Event known;
        Event done;
        std::atomic<unsigned> id{0};
    };
    Given given{&platform().threads(), platform().threads().createEvent(0, 0, nullptr),
                platform().threads().createEvent(0, 0, nullptr)};
    const auto body = [](void* argument) {
        auto* mine = static_cast<Given*>(argument);
        mine->known->wait();
        mine->threads->endThread(mine->id & 0xFFFF);
        // The event outlives its owner's last use: the waiter may leave the moment it is set.
        const Event done = mine->done;
        done->set();
        return 0;
    };
    given.id = platform().threads().createThread(body, "alone", 0, &given, 1, 0);
    ASSERT_NE(given.id, 0U);
    given.known->set();
    EXPECT_TRUE(given.done->wait(longMs));
}

// --- time

TEST_P(PlatformContract, TimeGoesOnAndSleepLastsAtLeastItsTime)
{
    iClock& clock = platform().clock();
    const std::uint32_t startMs = clock.msecs();
    const double start = clock.msecsPrecise();
    clock.sleep(20);
    EXPECT_GE(clock.msecsPrecise() - start, 20.0);
    EXPECT_GE(clock.msecs() - startMs, 19U);
    clock.sleep(0);
    const double end = clock.msecsPrecise();
    EXPECT_LE(end, clock.msecsPrecise());
}

TEST_P(PlatformContract, WholeAndPreciseMillisecondsAreOneClock)
{
    iClock& clock = platform().clock();
    const double before = clock.msecsPrecise();
    const std::uint32_t whole = clock.msecs();
    const double after = clock.msecsPrecise();
    const auto low = static_cast<std::uint32_t>(static_cast<std::uint64_t>(before));
    const auto high = static_cast<std::uint32_t>(static_cast<std::uint64_t>(after));
    EXPECT_LE(whole - low, high - low);
}

// --- page memory

TEST_P(PlatformContract, PageMemoryIsAlignedAndUsableToItsLastByte)
{
    iPageMemory& pages = platform().pages();
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{4096}, std::size_t{5000}, std::size_t{1 << 20}}) {
        void* memory = pages.allocate(nullptr, size, os::pagesReserveCommit, os::pagesReadWrite);
        ASSERT_NE(memory, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 4096, 0U);
        char* bytes = static_cast<char*>(memory);
        bytes[0] = 1;
        bytes[size - 1] = 2;
        EXPECT_EQ(bytes[size - 1], 2);
        EXPECT_TRUE(pages.release(memory, os::pagesRelease));
    }
}

TEST_P(PlatformContract, PageMemoryTakesNoOtherCodes)
{
    iPageMemory& pages = platform().pages();
    EXPECT_EQ(pages.allocate(nullptr, 4096, 4096, os::pagesReadWrite), nullptr);
    EXPECT_EQ(pages.allocate(nullptr, 4096, os::pagesReserveCommit, 2), nullptr);
    void* memory = pages.allocate(nullptr, 4096, os::pagesReserveCommit, os::pagesReadWrite);
    ASSERT_NE(memory, nullptr);
    EXPECT_FALSE(pages.release(memory, 32768));
    static_cast<char*>(memory)[0] = 1;
    EXPECT_TRUE(pages.release(memory, os::pagesRelease));
}

TEST_P(PlatformContract, OnlyWhatWasAllocatedIsReleasedAndOnlyOnce)
{
    iPageMemory& pages = platform().pages();
    char foreign[8192];
    EXPECT_FALSE(pages.release(foreign, os::pagesRelease));
    void* memory = pages.allocate(nullptr, 8192, os::pagesReserveCommit, os::pagesReadWrite);
    ASSERT_NE(memory, nullptr);
    EXPECT_FALSE(pages.release(static_cast<char*>(memory) + 4096, os::pagesRelease));
    EXPECT_TRUE(pages.release(memory, os::pagesRelease));
    EXPECT_FALSE(pages.release(memory, os::pagesRelease));
    EXPECT_TRUE(pages.release(nullptr, os::pagesRelease));
}
