// Writing as fast as it goes, and recording at the pace of a camera. The flush to the device is measured
// with the rest.

#include "Claims.h"
#include "Engine.h"
#include "Sinks.h"
#include "TestFile.h"

#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <thread>

namespace {

std::vector<unsigned char> someFrame(std::size_t bytes) { return std::vector<unsigned char>(bytes, 0xA5); }

struct Recording
{
    std::uint64_t frames = 0;
    std::uint64_t late = 0;  // handed over after the next one was due
    std::vector<double> handOverUs;
    std::exception_ptr failure;
};

void recordOne(FrameSink& sink, const Work& work, double rate, Recording& result)
try {
    const std::vector<unsigned char> frame = someFrame(work.block);
    const std::chrono::duration<double> interval(1 / rate);
    const auto frames = static_cast<std::uint64_t>(work.seconds * rate);
    const auto start = SteadyClock::now();
    for (; result.frames < frames; ++result.frames) {
        const auto due = start + std::chrono::duration_cast<SteadyClock::duration>(
                                     interval * static_cast<double>(result.frames));
        std::this_thread::sleep_until(due);
        const auto begin = SteadyClock::now();
        sink.write(frame);
        const auto end = SteadyClock::now();
        result.handOverUs.push_back(microseconds(end - begin));
        result.late += end > due + interval;
    }
    sink.finish();
} catch (...) {
    result.failure = std::current_exception();
}

// Into another file, so that the one that is measured grows from nothing.
void rehearseWriting(const Work& work, const std::vector<unsigned char>& frame)
{
    const std::string path = work.paths.at(0) + ".rehearsal";
    const std::unique_ptr<FrameSink> sink = makeSink(work.peer, path, work);
    for (unsigned i = 0; i < 2 * work.depth; ++i)
        sink->write(frame);
    sink->finish();
    std::filesystem::remove(path);
}

}  // namespace

Json peers::write(const Work& work)
{
    std::optional<Engine> engine;
    if (needsEngine(work.peer))
        engine.emplace(work);
    const std::string& path = work.paths.at(0);
    const std::vector<unsigned char> frame = someFrame(work.block);
    // The file grows without end; only the limits of the run are of interest.
    Claims claims(work, std::numeric_limits<std::int64_t>::max());
    std::uint64_t done = 0;
    rehearseWriting(work, frame);
    Meter meter;
    {
        const std::unique_ptr<FrameSink> sink = makeSink(work.peer, path, work);
        meter.start();
        claims.begin();
        for (; claims.next(); ++done)
            sink->write(frame);
        sink->finish();
        meter.stop();
    }
    return meter.report(done, done * work.block);
}

Json peers::record(const Work& work)
{
    std::optional<Engine> engine;
    if (needsEngine(work.peer))
        engine.emplace(work);
    std::vector<Recording> recordings(work.framesPerSecond.size());
    std::vector<std::unique_ptr<FrameSink>> sinks;
    for (std::size_t i = 0; i < recordings.size(); ++i)
        sinks.push_back(makeSink(work.peer, work.paths.at(i), work));
    Meter meter;
    meter.start();
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < recordings.size(); ++i)
            threads.emplace_back(
                [&, i] { recordOne(*sinks[i], work, work.framesPerSecond[i], recordings[i]); });
    }
    meter.stop();
    sinks.clear();
    Recording all;
    for (const Recording& recording : recordings) {
        if (recording.failure)
            std::rethrow_exception(recording.failure);
        all.frames += recording.frames;
        all.late += recording.late;
        all.handOverUs.insert(all.handOverUs.end(), recording.handOverUs.begin(), recording.handOverUs.end());
    }
    Json report = meter.report(all.frames, all.frames * work.block);
    report["late"] = all.late;
    report["hand_over_us"] = percentiles(all.handOverUs);
    return report;
}
