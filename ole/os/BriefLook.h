#pragma once

#include "os/Export.h"

#include <chrono>

namespace os {

// BriefLook: whether a thread that serves a queue looks for more work before it sleeps, and for how long.
//
// Where transfers are short and many are under way, the next piece of work comes sooner than a sleeping
// thread can be woken; looking for it for some microseconds then costs less processor time than the sleep,
// and the queue never stands still. The thread looks only where its last wait was short and its queue has
// lately been deeper than one, so that a caller with one transfer at a time makes nobody look; unless a busy
// wait (os::setBusyWait) was asked for, which is for that caller.
// Order:      worked after each round of work, then look, then a sleep where it found nothing, and at the
//             end came or cameNot.
// Threads:    one.
class BriefLook
{
public:
    // Never set back.
    using Clock = std::chrono::steady_clock;

    // A round of work is done; depth tells how much of it there was at once or is under way.
    OS_API void worked(unsigned depth);

    // Asks there() for work while that is worth it; true when it has some.
    template <class There>
    bool look(There there)
    {
        start_ = Clock::now();
        const Clock::time_point end = start_ + limit();
        if (end == start_)
            return false;
        while (!there()) {
            if (Clock::now() >= end)
                return false;
            pause();
        }
        return true;
    }

    // The wait that began with look has ended with work.
    OS_API void came();
    // The wait that began with look has ended without work.
    OS_API void cameNot();

private:
    [[nodiscard]] OS_API std::chrono::microseconds limit() const;
    OS_API static void pause();

    Clock::time_point start_;
    unsigned deepRounds_ = 0;  // for so many more rounds the queue counts as deep
    bool isBusy_ = false;      // the last wait brought work
    bool wasShort_ = false;    // and soon
};

}  // namespace os
