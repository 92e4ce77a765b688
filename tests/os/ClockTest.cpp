#include "os/Clock.h"

#include "os/testing/FakeOS.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>

TEST(Clock, CountsFromTheStartOfTheMachineAndNotOfTheProcess)
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    const double sinceBootMs =
        static_cast<double>(time.tv_sec) * 1000.0 + static_cast<double>(time.tv_nsec) / 1e6;
    EXPECT_GE(service_get_msecs_precise(), sinceBootMs);
    EXPECT_LT(service_get_msecs_precise(), sinceBootMs + 60'000.0);
}

TEST(Clock, ShortFormsAskTheOperatingSystem)
{
    FakeOS fake;
    const ScopedOS installed(fake);
    const double start = now();
    fake.clock().advance(250);
    EXPECT_DOUBLE_EQ(now() - start, 250.0);
    EXPECT_DOUBLE_EQ(now(), service_get_msecs_precise());
    EXPECT_EQ(service_get_msecs(), static_cast<std::uint32_t>(std::floor(now())));
}

TEST(Clock, ASignalDoesNotShortenASleep)
{
    struct sigaction action = {};
    struct sigaction old = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &old);
    std::atomic<bool> asleep{false};
    std::atomic<bool> done{false};
    double slept = 0;
    std::thread sleeper([&] {
        const double start = now();
        asleep = true;
        OS()->getClock()->sleep(100);
        slept = now() - start;
        done = true;
    });
    while (!asleep)
        std::this_thread::yield();
    while (!done) {
        pthread_kill(sleeper.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    sleeper.join();
    sigaction(SIGUSR1, &old, nullptr);
    EXPECT_GE(slept, 100.0);
}
