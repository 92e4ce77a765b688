#include "os/LastError.h"
#include "os/Threads.h"
#include "os/testing/FakeOS.h"

#include <atomic>
#include <cerrno>

#include <gtest/gtest.h>

namespace {

struct Loop
{
    std::atomic<bool> running{true};
    Qz::Ptr<iThreadEvent> kick;
    std::atomic<int> passes{0};
    std::string name;
    unsigned endItself = 0;
};

// A poll thread in small.
int pollBody(void* argument)
{
    Loop& loop = *static_cast<Loop*>(argument);
    loop.name = fake::currentThreadName();
    while (loop.running) {
        ++loop.passes;
        loop.kick->wait(50);
    }
    return 7;
}

int selfEndingBody(void* argument)
{
    Loop& loop = *static_cast<Loop*>(argument);
    loop.kick->wait();
    co_kill(loop.endItself & 0xFFFF);
    loop.running = false;
    return 0;
}

TEST(FakeThreads, ManualThreadsAreNotedAndNotStarted)
{
    FakeOS os;
    ScopedOS installed(os);
    Loop loop;
    loop.kick = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    const unsigned id = co_create(pollBody, "fsys poll", 0, &loop, 1, 0);
    ASSERT_EQ(os.threads().threads().size(), 1U);
    const fake::ThreadRecord thread = os.threads().threads()[0];
    EXPECT_EQ(thread.id, id);
    EXPECT_NE(id & 0xFFFF, 0U);
    EXPECT_NE(id >> 16, 0U);
    EXPECT_EQ(thread.body, &pollBody);
    EXPECT_EQ(thread.name, "fsys poll");
    EXPECT_EQ(thread.stackSize, 0U);
    EXPECT_EQ(thread.argument, &loop);
    EXPECT_EQ(thread.priority, 1);
    EXPECT_EQ(thread.flags, 0U);
    EXPECT_FALSE(thread.started);
    EXPECT_EQ(os.live().threads, 1U);
    co_kill(id & 0xFFFF);
    EXPECT_TRUE(os.threads().threads()[0].ended);
    EXPECT_EQ(os.live().threads, 0U);
    EXPECT_EQ(os.log().lines({fake::Op::createThread}), (std::vector<std::string>{"createThread fsys poll"}));
    EXPECT_EQ(os.log().lines({fake::Op::endThread}),
              (std::vector<std::string>{"endThread fsys poll " + std::to_string(id & 0xFFFF)}));
    EXPECT_EQ(loop.passes, 0);
}

TEST(FakeThreads, TheTestMayRunTheBodyOfAManualThread)
{
    FakeOS os;
    ScopedOS installed(os);
    Loop loop;
    loop.kick = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    ASSERT_NE(co_create(pollBody, "fsys poll", 0, &loop, 1, 0), 0U);
    os.clock().after(120, [&] { loop.running = false; });
    EXPECT_EQ(os.threads().run(0), 7);
    EXPECT_EQ(loop.passes, 3);
    EXPECT_EQ(loop.name, "fsys poll");
    EXPECT_EQ(fake::currentThreadName(), "");
    EXPECT_EQ(os.clock().sleptMs(), 0);
    EXPECT_TRUE(os.threads().threads()[0].returned);
    EXPECT_EQ(os.threads().threads()[0].result, 7);
}

TEST(FakeThreads, RealThreadsRunAndAreJoinedAtTheirEnd)
{
    FakeOS os(FakeOS::Mode::realThreads);
    ScopedOS installed(os);
    Loop loop;
    loop.kick = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    const unsigned id = co_create(pollBody, "fsys poll", 0, &loop, 1, 0);
    loop.running = false;
    loop.kick->set();
    co_kill(id & 0xFFFF);
    EXPECT_EQ(loop.name, "fsys poll");
    EXPECT_TRUE(os.threads().threads()[0].returned);
    EXPECT_EQ(os.threads().threads()[0].result, 7);
}

TEST(FakeThreads, RealThreadsMayRunInVirtualTime)
{
    FakeOS os;
    os.threads().useRealThreads();
    ScopedOS installed(os);
    Loop loop;
    loop.kick = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    const unsigned id = co_create(pollBody, "fsys poll", 0, &loop, 1, 0);
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    EXPECT_EQ(loop.passes, 1);
    os.clock().advance(49);
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    EXPECT_EQ(loop.passes, 1);
    loop.running = false;
    os.clock().advance(1);
    co_kill(id & 0xFFFF);
    EXPECT_EQ(loop.passes, 1);
}

TEST(FakeThreads, AThreadThatEndsItselfGoesOnAlone)
{
    FakeOS os(FakeOS::Mode::realThreads);
    ScopedOS installed(os);
    Loop loop;
    loop.kick = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    loop.endItself = co_create(selfEndingBody, "own", 0, &loop, 1, 0);
    loop.kick->set();
    while (!os.threads().threads()[0].returned)
        std::this_thread::yield();
    EXPECT_FALSE(loop.running);
    EXPECT_TRUE(os.threads().threads()[0].ended);
}

TEST(FakeThreads, AnUnknownIdIsIgnored)
{
    FakeOS os;
    os.getThreadServices()->endThread(3);
    EXPECT_EQ(os.live().threads, 0U);
}

TEST(FakeThreads, AThreadThatCannotBeStartedHasNoId)
{
    FakeOS os;
    os.faults().failNext(fake::Op::createThread, errorFromErrno(EAGAIN));
    EXPECT_EQ(os.getThreadServices()->createThread(pollBody, "x", 0, nullptr, 1, 0), 0U);
    EXPECT_EQ(lastError(), errorFromErrno(EAGAIN));
    EXPECT_TRUE(os.threads().threads().empty());
}

}  // namespace
