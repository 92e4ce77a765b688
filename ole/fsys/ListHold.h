#pragma once

#include "os/CriticalSection.h"

// Tells the processor that this thread only waits for another one to change a value.
#if defined(__x86_64__) || defined(__i386__)
inline void relaxProcessor() { __builtin_ia32_pause(); }
#else
inline void relaxProcessor() {}
#endif

// ListHold: holds the lock of a file's request lists for a short section.
//
// A section takes a fraction of a microsecond. Going to sleep for it and being woken takes several, and the
// holder pays for the wake-up with a system call, again and again while it comes back for every read. So
// a thread that finds the lock taken asks for it for some two microseconds before it sleeps.
// Threads:    as the lock itself, which is recursive.
class ListHold
{
public:
    explicit ListHold(CriticalSection& lock) : lock_(lock)
    {
        if (!lock_.try_lock())
            insist();
    }
    ~ListHold() { lock_.unlock(); }
    ListHold(const ListHold&) = delete;
    ListHold& operator=(const ListHold&) = delete;

private:
    static constexpr unsigned turnsBeforeSleep = 24;
    static constexpr unsigned pausesPerTurn = 4;  // leave the lock's line to its holder

    void insist()
    {
        for (unsigned turn = 0; turn < turnsBeforeSleep; ++turn) {
            for (unsigned pause = 0; pause < pausesPerTurn; ++pause)
                relaxProcessor();
            if (lock_.try_lock())
                return;
        }
        lock_.lock();
    }

    CriticalSection& lock_;
};
