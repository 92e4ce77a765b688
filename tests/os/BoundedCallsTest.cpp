#include "os/linux/BoundedCalls.h"

#include "os/LastError.h"
#include "os/Patience.h"
#include "os/linux/CallLane.h"

#include <cerrno>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace os;

namespace {

constexpr unsigned endless = 600000;
constexpr unsigned brief = 20;

// A call that hangs until it is let go.
class Hang
{
public:
    [[nodiscard]] std::function<int(Progress&)> call(int result = 1)
    {
        return [gate = gate_, started = started_, result](Progress&) {
            started->set_value();
            gate.wait();
            return result;
        };
    }
    void waitUntilStarted() { started_->get_future().wait(); }
    void letGo() { open_.set_value(); }

private:
    std::promise<void> open_;
    std::shared_future<void> gate_ = open_.get_future().share();
    std::shared_ptr<std::promise<void>> started_ = std::make_shared<std::promise<void>>();
};

int answer(Progress&) { return 42; }

// Calls until the lane takes calls again; the stuck one returns in its own time.
std::optional<int> callWhenFree(BoundedCalls& calls, const std::string& lane)
{
    std::optional<int> result;
    while (!(result = calls.call<int>(lane, answer)))
        std::this_thread::yield();
    return result;
}

}  // namespace

TEST(BoundedCalls, GivesTheResultOfTheWork)
{
    BoundedCalls calls(endless);
    EXPECT_EQ(calls.call<int>("a", answer), 42);
    EXPECT_EQ(calls.call<std::string>("a", [](Progress&) { return std::string("text"); }), "text");
}

TEST(BoundedCalls, RunsOnAnotherThread)
{
    BoundedCalls calls(endless);
    const auto worker =
        calls.call<std::thread::id>("a", [](Progress&) { return std::this_thread::get_id(); });
    EXPECT_NE(worker, std::this_thread::get_id());
}

TEST(BoundedCalls, CarriesTheLastErrorOfTheWorkToTheCaller)
{
    BoundedCalls calls(endless);
    setLastErrno(ENOENT);
    EXPECT_TRUE(calls.call<int>("a", answer));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT)) << "success leaves the code alone";
    calls.call<int>("a", [](Progress&) {
        setLastErrno(EACCES);
        return 0;
    });
    EXPECT_EQ(lastError(), errorFromErrno(EACCES));
}

TEST(BoundedCalls, GivesUpACallThatHangs)
{
    BoundedCalls calls(brief);
    Hang hang;
    EXPECT_FALSE(calls.call<int>("a", hang.call()));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    hang.letGo();
}

TEST(BoundedCalls, StartsNoSecondCallWhileOneIsStuck)
{
    BoundedCalls calls(brief);
    Hang hang;
    ASSERT_FALSE(calls.call<int>("a", hang.call()));
    calls.setLimit(endless);  // a call that started would now be waited for
    bool started = false;
    setLastErrno(ENOENT);
    EXPECT_FALSE(calls.call<bool>("a", [&started](Progress&) { return started = true; }));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    EXPECT_FALSE(started);
    hang.letGo();
}

TEST(BoundedCalls, AStuckMountHoldsUpNoOther)
{
    BoundedCalls calls(brief);
    Hang hang;
    ASSERT_FALSE(calls.call<int>("a", hang.call()));
    calls.setLimit(endless);
    EXPECT_EQ(calls.call<int>("b", answer), 42);
    hang.letGo();
}

TEST(BoundedCalls, AMountServesAgainWhenItsStuckCallHasReturned)
{
    BoundedCalls calls(brief);
    Hang hang;
    ASSERT_FALSE(calls.call<int>("a", hang.call()));
    hang.letGo();
    calls.setLimit(endless);
    EXPECT_EQ(callWhenFree(calls, "a"), 42);
}

TEST(BoundedCalls, ACallThatMovesOnIsNotGivenUp)
{
    BoundedCalls calls(1000);
    const auto result = calls.call<int>("a", [](Progress& progress) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
        while (std::chrono::steady_clock::now() < end) {
            progress.step();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return 7;
    });
    EXPECT_EQ(result, 7);
}

TEST(BoundedCalls, ALongCallDoesNotHoldUpAnotherOfItsMount)
{
    BoundedCalls calls(endless);
    Hang hang;
    auto slow = std::async(std::launch::async, [&] { return calls.call<int>("a", hang.call(3)); });
    hang.waitUntilStarted();
    EXPECT_EQ(calls.call<int>("a", answer), 42);
    hang.letGo();
    EXPECT_EQ(slow.get(), 3);
}

TEST(BoundedCalls, ACallThatNeverStartedIsTakenBack)
{
    BoundedCalls calls(endless);
    std::vector<std::unique_ptr<Hang>> hangs;
    std::vector<std::future<std::optional<int>>> busy;
    for (int i = 0; i < 4; ++i) {
        hangs.push_back(std::make_unique<Hang>());
        busy.push_back(std::async(std::launch::async, [&calls, hang = hangs.back().get(), i] {
            return calls.call<int>("a", hang->call(i));
        }));
        hangs.back()->waitUntilStarted();
    }
    calls.setLimit(brief);
    auto started = std::make_shared<std::atomic<bool>>(false);
    EXPECT_FALSE(calls.call<int>("a", [started](Progress&) {
        *started = true;
        return 0;
    }));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    for (int i = 0; i < 4; ++i) {
        hangs[static_cast<std::size_t>(i)]->letGo();
        EXPECT_EQ(busy[static_cast<std::size_t>(i)].get(), i);
    }
    EXPECT_EQ(callWhenFree(calls, "a"), 42);
    EXPECT_FALSE(*started);
}

TEST(BoundedCalls, MayGoBeforeACallThatItGaveUp)
{
    Hang hang;
    {
        BoundedCalls calls(brief);
        ASSERT_FALSE(calls.call<int>("a", hang.call()));
    }
    hang.letGo();
}

TEST(BoundedCalls, WorkThatThrowsHasNoResult)
{
    BoundedCalls calls(endless);
    EXPECT_FALSE(calls.call<int>("a", [](Progress&) -> int { throw std::bad_alloc(); }));
    EXPECT_EQ(lastError(), errorFromErrno(ENOMEM));
    EXPECT_EQ(calls.call<int>("a", answer), 42);
}

TEST(BoundedCalls, ServesManyThreadsAtOnce)
{
    BoundedCalls calls(endless);
    std::vector<std::thread> threads;
    std::atomic<int> sum{0};
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&calls, &sum, i] {
            for (int k = 0; k < 50; ++k)
                sum += calls.call<int>(i % 2 ? "a" : "b", [](Progress&) { return 1; }).value_or(0);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(sum, 400);
}

// On a busy machine a thread may start or wake later than its call is waited for. Here nothing is waited for,
// so that it happens in some rounds at least.
TEST(BoundedCalls, AThreadThatComesTooLateForItsCallServesTheNextOne)
{
    BoundedCalls calls(endless);
    for (int round = 0; round < 100; ++round) {
        const std::string lane = "a" + std::to_string(round % 50);  // a new thread, and later its waking
        calls.setLimit(0);
        static_cast<void>(calls.call<int>(lane, answer));
        const Patience patience(10'000);
        ASSERT_EQ(calls.call<int>(lane, answer), 42) << "in round " << round;
    }
}

// --- patience

TEST(BoundedCalls, APatientCallerWaitsForAStuckMount)
{
    BoundedCalls calls(brief);
    Hang hang;
    ASSERT_FALSE(calls.call<int>("a", hang.call()));
    auto patient = std::async(std::launch::async, [&calls] {
        const Patience patience(endless);
        return calls.call<int>("a", answer);
    });
    EXPECT_EQ(patient.wait_for(std::chrono::milliseconds(3 * brief)), std::future_status::timeout);
    hang.letGo();
    EXPECT_EQ(patient.get(), 42);
}

TEST(BoundedCalls, PatienceReplacesTheLimitInBothDirections)
{
    Hang hang;
    {
        BoundedCalls calls(endless);
        const Patience patience(brief);
        EXPECT_FALSE(calls.call<int>("a", hang.call()));
        EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    }
    hang.letGo();
}

TEST(BoundedCalls, CallersAreRefusedWhileNoThreadComesBack)
{
    BoundedCalls calls(brief);
    std::vector<std::unique_ptr<Hang>> hangs;
    std::vector<std::future<std::optional<int>>> busy;
    for (int i = 0; i < 4; ++i) {
        hangs.push_back(std::make_unique<Hang>());
        busy.push_back(std::async(std::launch::async, [&calls, hang = hangs.back().get()] {
            const Patience patience(endless);
            return calls.call<int>("a", hang->call());
        }));
        hangs.back()->waitUntilStarted();
    }
    EXPECT_FALSE(calls.call<int>("a", answer)) << "after its time";
    calls.setLimit(endless);
    EXPECT_FALSE(calls.call<int>("a", answer)) << "at once, or this would never end";
    for (auto& hang : hangs)
        hang->letGo();
    for (auto& one : busy)
        EXPECT_EQ(one.get(), 1);
    EXPECT_EQ(callWhenFree(calls, "a"), 42);
}

TEST(CallLane, WhatGivesSomethingBackRunsWhenTheMountAnswersAgain)
{
    const auto lane = std::make_shared<CallLane>(1);
    Hang hang;
    const auto work = hang.call();
    EXPECT_FALSE(
        lane->run([work](Progress& progress) { work(progress); }, {std::chrono::milliseconds(brief)}));
    auto done = std::make_shared<std::promise<void>>();
    const std::future<void> ended = done->get_future();
    lane->end([done] { done->set_value(); }, std::chrono::milliseconds(endless));  // does not wait
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(brief)), std::future_status::timeout);
    hang.letGo();
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(endless)), std::future_status::ready);
}

TEST(CallLane, WhatGivesSomethingBackIsWaitedForWhereTheMountAnswers)
{
    const auto lane = std::make_shared<CallLane>(1);
    auto done = std::make_shared<std::atomic<bool>>(false);
    lane->end(
        [done] {
            std::this_thread::sleep_for(std::chrono::milliseconds(brief));
            *done = true;
        },
        std::chrono::milliseconds(endless));
    EXPECT_TRUE(*done);
}
