#pragma once

#include "Claims.h"
#include "TestFile.h"

#include <functional>
#include <stdexcept>
#include <vector>

// Reads one at a time, timed by the caller.
//
// call      until the call that asks has returned
// to_data   until the data is there: for the engine, until its completion function runs
// to_caller until the thread that asked goes on
// Threads:  data() on any, the rest on one.
class Stopwatch
{
public:
    void begin() { start_ = SteadyClock::now(); }
    void called() { called_ = SteadyClock::now(); }
    void data() { data_ = SteadyClock::now(); }
    void goneOn()
    {
        const auto now = SteadyClock::now();
        call_.push_back(microseconds(called_ - start_));
        toData_.push_back(microseconds(data_ - start_));
        toCaller_.push_back(microseconds(now - start_));
    }
    void addTo(Json& report) const
    {
        report["latency_us"] = {{"call", percentiles(call_)},
                                {"to_data", percentiles(toData_)},
                                {"to_caller", percentiles(toCaller_)}};
    }
    [[nodiscard]] std::uint64_t count() const { return call_.size(); }

private:
    SteadyClock::time_point start_;
    SteadyClock::time_point called_;
    SteadyClock::time_point data_;
    std::vector<double> call_;
    std::vector<double> toData_;
    std::vector<double> toCaller_;
};

// Runs readOne(position, stopwatch, claims) until the work is over. rehearsed runs when the rehearsal is
// over.
template <class ReadOne>
Json timeEach(
    const Work& work, const ReadOne& readOne, const std::function<void()>& rehearsed = [] {})
{
    Claims claims(work, sizeOf(work.paths.at(0)));
    Stopwatch stopwatch;
    const auto readAll = [&] {
        while (const auto position = claims.next()) {
            stopwatch.begin();
            readOne(*position, stopwatch, claims);
            stopwatch.goneOn();
        }
    };
    claims.rehearse();
    readAll();
    stopwatch = {};
    rehearsed();
    Meter meter;
    meter.start();
    claims.begin();
    readAll();
    meter.stop();
    if (!claims.allCame())
        throw std::runtime_error("other bytes came than were asked for");
    Json report = meter.report(stopwatch.count(), stopwatch.count() * work.block);
    stopwatch.addTo(report);
    return report;
}
