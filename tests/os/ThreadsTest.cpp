#include "os/Threads.h"

#include "os/LastError.h"
#include "os/linux/ThreadTable.h"

#include <atomic>
#include <cerrno>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>

namespace {

std::string nameOfThisThread()
{
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

int storeName(void* argument)
{
    *static_cast<std::string*>(argument) = nameOfThisThread();
    return 0;
}

int nothing(void*) { return 0; }

}  // namespace

TEST(Threads, AreStartedAndEndedThroughTheOperatingSystem)
{
    std::string name;
    const unsigned id = co_create(storeName, "fsys poll", 0, &name, 1, 0);
    ASSERT_NE(id, 0U);
    co_kill(id & 0xFFFF);
    EXPECT_EQ(name, "fsys poll");
}

TEST(Threads, LongNamesAreCut)
{
    std::string name;
    co_kill(co_create(storeName, "a name that is too long", 0, &name, 1, 0) & 0xFFFF);
    EXPECT_EQ(name, "a name that is ");
}

TEST(Threads, TakeTheStackThatTheyAskFor)
{
    std::size_t size = 0;
    const auto body = [](void* argument) {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, static_cast<std::size_t*>(argument));
        pthread_attr_destroy(&attributes);
        return 0;
    };
    co_kill(co_create(body, "stack", 1'000'000, &size, 1, 0) & 0xFFFF);
    EXPECT_GE(size, 1'000'000U);
    EXPECT_LT(size, 2'000'000U);
    // Less than a thread can live with is rounded up.
    co_kill(co_create(body, "stack", 1, &size, 1, 0) & 0xFFFF);
    EXPECT_GT(size, 4096U);
}

TEST(Threads, WithoutABodyThereIsNoThread)
{
    EXPECT_EQ(co_create(nullptr, "none", 0, nullptr, 1, 0), 0U);
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
}

TEST(ThreadTable, SlotsAreUsedAgainUnderANewGeneration)
{
    ThreadTable table;
    const unsigned first = table.start(nothing, "a", 0, nullptr);
    EXPECT_EQ(first & 0xFFFF, 1U);
    table.end(1);
    const unsigned second = table.start(nothing, "a", 0, nullptr);
    EXPECT_EQ(second & 0xFFFF, 1U);
    EXPECT_EQ(second >> 16, (first >> 16) + 1);
    table.end(1);
}

TEST(ThreadTable, ASlotIsFreeOnlyAfterItsThreadHasEnded)
{
    ThreadTable table;
    std::atomic<bool> go{false};
    const auto body = [](void* argument) {
        static_cast<std::atomic<bool>*>(argument)->wait(false);
        return 0;
    };
    const unsigned first = table.start(body, "a", 0, &go);
    const unsigned second = table.start(nothing, "b", 0, nullptr);
    EXPECT_EQ(second & 0xFFFF, 2U);
    table.end(2);
    go = true;
    go.notify_all();
    table.end(first & 0xFFFF);
}

TEST(ThreadTable, ManyThreadsComeAndGo)
{
    ThreadTable table;
    for (int i = 0; i < 2000; ++i) {
        const unsigned id = table.start(nothing, "many", 0, nullptr);
        ASSERT_NE(id, 0U);
        table.end(id & 0xFFFF);
    }
}
