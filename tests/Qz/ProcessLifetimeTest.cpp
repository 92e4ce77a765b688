// What is used before main and from the last static destructors.

#include <cstdio>
#include <cstdlib>

#include "Qz/NotifyMsg.h"
#include "Qz/ObjectPool.h"
#include "Qz/QzLokiSingleton.h"
#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "Qz/Vector.h"

#include <gtest/gtest.h>

namespace {

struct Instance
{
    LightweightString<char> text = "instance";
};

bool lateUseWanted = false;

void sayShutdown(Shutdown::eExitType) { std::fputs("shutdown;", stderr); }

void useEverything()
{
    if (NotifyMsgTypeDictionary::instance().intern("ProcessLifetimeTest") != 0)
        std::fputs("dictionary;", stderr);
    Qz::ObjectPool& pool = Qz::ObjectPool::named("ProcessLifetimeTest", 16);
    pool.give(pool.take());
    if (pool.blocksInUse() == 0)
        std::fputs("pool;", stderr);
    if (Qz::SingletonHolder<Instance>::instance().text == "instance")
        std::fputs("singleton;", stderr);
    if (Vector<LightweightString<wchar_t>>()[0].isNull())
        std::fputs("vector;", stderr);
    Shutdown::addCallback(sayShutdown, 1);
}

// Made before any other static of the test binary, and so before all that it uses: its destructor runs
// after theirs would.
struct LastDestructor
{
    LastDestructor() = default;
    ~LastDestructor()
    {
        if (lateUseWanted)
            useEverything();
    }
    LastDestructor(const LastDestructor&) = delete;
    LastDestructor& operator=(const LastDestructor&) = delete;
};
[[gnu::init_priority(101)]] const LastDestructor lastDestructor;

const bool poolWorkedBeforeMain = [] {
    Qz::ObjectPool& pool = Qz::ObjectPool::named("ProcessLifetimeTest early", 16);
    void* const block = pool.take();
    pool.give(block);
    return block != nullptr;
}();

const LightweightString<wchar_t> convertedBeforeMain = fromUTF8("\xC3\xA9");

[[noreturn]] void exitWithLateUse()
{
    lateUseWanted = true;
    useEverything();
    std::fputs("exit;", stderr);
    std::exit(0);
}

}  // namespace

TEST(ProcessLifetime, PoolsAndConversionsWorkBeforeMain)
{
    EXPECT_TRUE(poolWorkedBeforeMain);
    EXPECT_EQ(convertedBeforeMain, L"\x00E9");
}

TEST(ProcessLifetime, EverythingWorksUntilTheLastStaticDestructor)
{
    EXPECT_EXIT(exitWithLateUse(), testing::ExitedWithCode(0),
                "dictionary;pool;singleton;vector;exit;shutdown;dictionary;pool;singleton;vector;shutdown;");
}
