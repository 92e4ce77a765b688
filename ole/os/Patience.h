#pragma once

#include "os/Export.h"

namespace os {

// Patience: lets the calls of this thread wait longer, or shorter, for a server.
//
// Usually a question to a network or user-space file system is given up after two seconds, because the thread
// that asks may be one that everybody waits for, and while an answer is overdue nobody asks again. A recorder
// or a player that is told how long a stall may last says so with one of these: its calls then wait so long,
// also behind an answer that is overdue already.
//
// Threads:    the one that makes it. The innermost counts.
// Units:      milliseconds; 0 waits for ever.
class OS_API Patience
{
public:
    // From now on this thread waits so long.
    explicit Patience(unsigned limitMs);
    // The limit before holds again.
    ~Patience();
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;

    // True while this thread has one.
    [[nodiscard]] static bool isSet();
    // The limit of this thread; usualMs when none is set.
    [[nodiscard]] static unsigned limitMs(unsigned usualMs);

private:
    const bool wasSet_;
    const unsigned limitMsBefore_;
};

}  // namespace os
