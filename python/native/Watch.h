#pragma once

#include "WatchedFolder.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <pybind11/pybind11.h>
#include <string>
#include <vector>

// Watch: keeps registry and index true to what other processes do, and tells what came of it.
//
// It has no thread: it looks when it is asked for an event and none waits. So its end waits for nobody.
// Threads:    any; those that ask at once look one after another. stop from any thread, at any time.
// Locks:      called with the interpreter's lock, waits without it.
class Watch
{
public:
    // Events are told from here on. lookMs: time between two looks.
    explicit Watch(unsigned lookMs);

    // The next event, waited for at most that long; None when there was none, or it was stopped.
    [[nodiscard]] pybind11::object next(unsigned waitMs);
    void stop();
    [[nodiscard]] bool isStopped() const;

private:
    struct Place
    {
        LightweightString<wchar_t> name;
        LightweightString<wchar_t> path;
        bool online = false;
        std::vector<WatchedFolder> folders;
    };
    using Clock = std::chrono::steady_clock;

    void look(const Tell& tell);
    void followLists();
    void followRegistry(const Tell& tell);
    void followPlace(DriveId id, Place& place, const Tell& tell);
    void lookWhenDue();

    const std::chrono::milliseconds interval_;
    std::mutex looking_;  // the places, and when they were looked at
    std::map<DriveId, Place> places_;
    std::vector<LightweightString<wchar_t>> unmounted_;  // roots, as of the last look
    Clock::time_point due_;

    mutable std::mutex guard_;
    std::condition_variable changed_;
    std::deque<WatchEvent> events_;  // under guard_
    bool stopped_ = false;           // under guard_
};
