#include "Qz/Shutdown.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string ran;

void engine(Shutdown::eExitType) { ran += "engine "; }
void registry(Shutdown::eExitType) { ran += "registry "; }
void first(Shutdown::eExitType) { ran += "first "; }
void second(Shutdown::eExitType) { ran += "second "; }
void exitType(Shutdown::eExitType type) { ran += std::to_string(static_cast<int>(type)) + " "; }

void registersMore(Shutdown::eExitType)
{
    ran += "more ";
    Shutdown::addCallback(registry, 1);
    Shutdown::addCallback(engine, 1000);
}

void runsTheOthers(Shutdown::eExitType type)
{
    ran += "outer ";
    Shutdown::run(type);
}

std::atomic<int> counted{0};
void counts(Shutdown::eExitType) { ++counted; }

void says(Shutdown::eExitType type) { std::fprintf(stderr, "ran %d;", static_cast<int>(type)); }
void addsWhileExiting() { Shutdown::addCallback(says, 1); }

std::vector<int> observed;
void observe(Shutdown::Callback, int priority) { observed.push_back(priority); }

[[noreturn]] void exitWithOnePending()
{
    Shutdown::addCallback(says, 1);
    std::exit(0);
}

[[noreturn]] void exitAfterRun()
{
    Shutdown::addCallback(says, 1);
    Shutdown::run(Shutdown::eAbnormalExit);
    std::exit(0);
}

[[noreturn]] void exitWithALateRegistration()
{
    std::atexit(addsWhileExiting);  // runs after the hook, which is registered later
    Shutdown::addCallback(says, 1);
    std::exit(0);
}

}  // namespace

TEST(Shutdown, HigherPrioritiesRunEarlier)
{
    ran.clear();
    Shutdown::addCallback(registry, 201);
    Shutdown::addCallback(engine, 499);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(ran, "engine registry ");
}

TEST(Shutdown, EqualPrioritiesRunInReverseOrderOfRegistration)
{
    ran.clear();
    Shutdown::addCallback(first, 5);
    Shutdown::addCallback(second, 5);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(ran, "second first ");
}

TEST(Shutdown, EachRegistrationRunsOnce)
{
    ran.clear();
    Shutdown::addCallback(first, 5);
    Shutdown::addCallback(first, 4);
    Shutdown::run(Shutdown::eNormalExit);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(ran, "first first ");
}

TEST(Shutdown, CallbacksGetTheExitType)
{
    ran.clear();
    Shutdown::addCallback(exitType, 1);
    Shutdown::run(Shutdown::eNormalExit);
    Shutdown::addCallback(exitType, 1);
    Shutdown::run(Shutdown::eAbnormalExit);
    EXPECT_EQ(ran, "0 1 ");
}

TEST(Shutdown, CallbacksRegisteredDuringARunRunAsWellByPriority)
{
    ran.clear();
    Shutdown::addCallback(registersMore, 10);
    Shutdown::addCallback(second, 5);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(ran, "more engine second registry ");
}

TEST(Shutdown, ACallbackMayRunTheOthers)
{
    ran.clear();
    Shutdown::addCallback(runsTheOthers, 10);
    Shutdown::addCallback(first, 5);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(ran, "outer first ");
}

TEST(Shutdown, ANullCallbackIsIgnored)
{
    ran.clear();
    Shutdown::addCallback(nullptr, 10);
    Shutdown::addCallback(first, 5);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(ran, "first ");
}

TEST(Shutdown, ThreadsThatRunTogetherRunEachCallbackOnce)
{
    counted = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round) {
                Shutdown::addCallback(counts, round);
                Shutdown::run(Shutdown::eNormalExit);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counted, 400);
}

TEST(Shutdown, AnObserverSeesEachRegistrationUntilItIsTakenBack)
{
    observed.clear();
    Shutdown::setObserver(observe);
    Shutdown::addCallback(first, 499);
    Shutdown::addCallback(first, 201);
    Shutdown::setObserver(nullptr);
    Shutdown::addCallback(first, 1);
    Shutdown::run(Shutdown::eNormalExit);
    EXPECT_EQ(observed, (std::vector<int>{499, 201}));
}

TEST(Shutdown, AnExitRunsWhatIsPendingAsANormalExit)
{
    EXPECT_EXIT(exitWithOnePending(), testing::ExitedWithCode(0), "^ran 0;$");
}

TEST(Shutdown, AnExitDoesNotRepeatWhatTheApplicationRan)
{
    EXPECT_EXIT(exitAfterRun(), testing::ExitedWithCode(0), "^ran 1;$");
}

TEST(Shutdown, WhatIsRegisteredDuringTheExitStillRuns)
{
    EXPECT_EXIT(exitWithALateRegistration(), testing::ExitedWithCode(0), "^ran 0;ran 0;$");
}
