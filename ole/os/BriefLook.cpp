#include "os/BriefLook.h"

#include "os/BusyWait.h"

#include <algorithm>
#include <thread>

namespace os {

namespace {

// About what it costs to be woken.
constexpr std::chrono::microseconds briefly{20};
constexpr std::chrono::microseconds shortWait{60};
constexpr unsigned roundsOfMemory = 64;

}  // namespace

void BriefLook::worked(unsigned depth)
{
    if (depth > 1)
        deepRounds_ = roundsOfMemory;
    else if (deepRounds_ > 0)
        --deepRounds_;
}

void BriefLook::came()
{
    isBusy_ = true;
    wasShort_ = Clock::now() - start_ < shortWait;
}

void BriefLook::cameNot() { isBusy_ = wasShort_ = false; }

std::chrono::microseconds BriefLook::limit() const
{
    const std::chrono::microseconds own =
        deepRounds_ > 0 && wasShort_ ? briefly : std::chrono::microseconds(0);
    return isBusy_ ? std::max(own, std::chrono::microseconds(busyWait())) : own;
}

void BriefLook::pause() { std::this_thread::yield(); }

}  // namespace os
