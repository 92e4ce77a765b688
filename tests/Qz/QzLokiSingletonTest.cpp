#include "Qz/QzLokiSingleton.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Each test has a holder of its own: the type's number.
template <int Number>
struct Counted
{
    Counted() { ++made; }
    ~Counted() { ++ended; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    inline static std::atomic<int> made{0};
    inline static std::atomic<int> ended{0};
};

struct Speaking
{
    Speaking() = default;
    ~Speaking() { std::fputs("ended;", stderr); }
    Speaking(const Speaking&) = delete;
    Speaking& operator=(const Speaking&) = delete;
};

struct AsksAtItsEnd
{
    AsksAtItsEnd() { ++made; }
    ~AsksAtItsEnd()
    {
        if (made == 1)
            Qz::SingletonHolder<AsksAtItsEnd>::instance();
    }
    AsksAtItsEnd(const AsksAtItsEnd&) = delete;
    AsksAtItsEnd& operator=(const AsksAtItsEnd&) = delete;
    inline static int made = 0;
};

using Speaker = Qz::SingletonHolder<Speaking>;

void askForTheSpeaker() { Speaker::instance(); }

[[noreturn]] void exitAfterUse()
{
    Speaker::instance();
    std::exit(0);
}

[[noreturn]] void exitAfterDestroyAndNewUse()
{
    Speaker::instance();
    Speaker::destroy();
    Speaker::instance();
    std::exit(0);
}

[[noreturn]] void exitAfterDestroyBeforeUse()
{
    Speaker::destroy();
    Speaker::instance();
    std::exit(0);
}

[[noreturn]] void exitAndAskLate()
{
    std::atexit(askForTheSpeaker);  // runs after the holder's callback, which is registered later
    Speaker::instance();
    std::exit(0);
}

}  // namespace

TEST(SingletonHolder, TheInstanceIsMadeOnFirstUseAndStaysTheSame)
{
    using Holder = Qz::SingletonHolder<Counted<1>>;
    EXPECT_EQ(Counted<1>::made, 0);
    Counted<1>* const first = &Holder::instance();
    EXPECT_EQ(&Holder::instance(), first);
    EXPECT_EQ(Counted<1>::made, 1);
}

TEST(SingletonHolder, ThreadsThatAskAtOnceGetTheSameInstance)
{
    using Holder = Qz::SingletonHolder<Counted<2>>;
    std::atomic<int> ready{0};
    std::vector<Counted<2>*> seen(4);
    std::vector<std::thread> threads;
    for (Counted<2>*& mine : seen)
        threads.emplace_back([&] {
            ++ready;
            while (ready < 4)
                std::this_thread::yield();
            mine = &Holder::instance();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::set<Counted<2>*>(seen.begin(), seen.end()).size(), 1u);
    EXPECT_EQ(Counted<2>::made, 1);
}

TEST(SingletonHolder, DestroyingTwicePrintsTheAssertionAndDoesNothing)
{
    using Holder = Qz::SingletonHolder<Counted<3>>;
    Holder::instance();
    testing::internal::CaptureStdout();
    Holder::destroy();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    Holder::destroy();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed !destroyed_ at ole/Qz/QzLokiSingleton line 242\n");
    EXPECT_EQ(Counted<3>::ended, 1);
}

TEST(SingletonHolder, AskingAfterTheDestructionMakesANewInstance)
{
    using Holder = Qz::SingletonHolder<Counted<4>>;
    Holder::instance();
    Holder::destroy();
    Holder::instance();
    EXPECT_EQ(Counted<4>::made, 2);
    EXPECT_EQ(Counted<4>::ended, 1);
    testing::internal::CaptureStdout();
    Holder::destroy();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Counted<4>::ended, 2);
}

TEST(SingletonHolder, AnInstanceMayAskForAnInstanceAtItsOwnEnd)
{
    using Holder = Qz::SingletonHolder<AsksAtItsEnd>;
    Holder::instance();
    Holder::destroy();
    EXPECT_EQ(AsksAtItsEnd::made, 2);
}

TEST(SingletonHolder, TheInstanceIsDestroyedAtExit)
{
    EXPECT_EXIT(exitAfterUse(), testing::ExitedWithCode(0), "^ended;$");
}

TEST(SingletonHolder, AnInstanceMadeAfterADestroyThatFoundNoneIsDestroyedAtExit)
{
    EXPECT_EXIT(exitAfterDestroyBeforeUse(), testing::ExitedWithCode(0), "^ended;$");
}

TEST(SingletonHolder, AnInstanceMadeAnewBeforeTheExitIsDestroyedOnceToo)
{
    EXPECT_EXIT(exitAfterDestroyAndNewUse(), testing::ExitedWithCode(0), "^ended;ended;$");
}

TEST(SingletonHolder, AnInstanceMadeAfterTheExitCallbackIsNeverDestroyed)
{
    EXPECT_EXIT(exitAndAskLate(), testing::ExitedWithCode(0), "^ended;$");
}
