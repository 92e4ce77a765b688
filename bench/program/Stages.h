#pragma once

#include "Meter.h"
#include "os/testing/ForwardingOS.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

// Stages: when a read that is alone in the engine passes its stations, seen from the platform below it.
//
// queue     from the call to the kick of the poll thread
// kick      until that thread runs
// pass      until it hands the transfer to the platform
// transfer  until a completion thread has the result: submission, the disk or the cache, and a wake-up
// callback  until the caller's completion function runs
// Between construction and destruction this is the platform of the process; the engine starts and ends
// within. Threads:  begin, end and addTo on the thread that asks; delivered on any.
class Stages
{
public:
    Stages();
    ~Stages();
    Stages(const Stages&) = delete;
    Stages& operator=(const Stages&) = delete;

    void begin();
    void delivered() { pass(calledBack); }
    // Takes the read that has ended into account.
    void end();
    // Forgets what was taken into account.
    void clear();
    // Percentiles of each stage, in microseconds.
    void addTo(Json& report) const;

private:
    enum Station : unsigned { asked, kicked, woken, handed, completed, calledBack, stationCount };
    class Event;
    class Threads;
    class File;
    class Files;
    class Receiver;
    class Platform;

    // The first time counts: the poll thread goes on to look for more.
    void pass(Station station);

    std::array<std::atomic<SteadyClock::rep>, stationCount> times_{};
    std::array<std::vector<double>, stationCount - 1> durations_;
    std::unique_ptr<Platform> platform_;
};
