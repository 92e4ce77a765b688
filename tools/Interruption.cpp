#include "Interruption.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include <signal.h>

namespace {

std::atomic<bool> wanted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

constexpr auto longestSleep = std::chrono::milliseconds(100);

void setHandler(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = handler == SIG_DFL ? 0 : static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

Interruption::Interruption()
{
    wanted = false;
    setHandler([](int) { wanted = true; });
}

Interruption::~Interruption() { setHandler(SIG_DFL); }

bool Interruption::isWanted() { return wanted; }

bool Interruption::sleepUntil(std::chrono::steady_clock::time_point time)
{
    for (auto now = std::chrono::steady_clock::now(); !wanted && now < time;
         now = std::chrono::steady_clock::now())
        std::this_thread::sleep_until(std::min(time, now + longestSleep));
    return !wanted;
}
