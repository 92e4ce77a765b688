// Streams that are played against a clock: a frame is late when it was not there at its time.

#include "CacheDropper.h"
#include "Engine.h"
#include "Sinks.h"
#include "Streams.h"
#include "TestFile.h"

#include <optional>
#include <thread>

namespace {

constexpr auto preroll = std::chrono::milliseconds(1000);

// A camera beside the player, in the same way of doing I/O.
class SideRecording
{
public:
    explicit SideRecording(const Work& work)
    {
        if (work.recordTo.empty())
            return;
        const std::string peer = work.peer == "fsys" ? "fsys" : "pwrite";
        sink_ = makeSink(peer, work.recordTo, work);
        thread_ = std::jthread([this, &work](const std::stop_token& stop) { run(stop, work); });
    }
    // Frames that were handed over late.
    std::uint64_t finish()
    {
        if (thread_.joinable()) {
            thread_.request_stop();
            thread_.join();
            sink_->finish();
        }
        return late_;
    }

private:
    void run(const std::stop_token& stop, const Work& work)
    {
        const std::vector<unsigned char> frame(work.block, 0xA5);
        const std::chrono::duration<double> interval(1 / work.framesPerSecond[0]);
        const auto start = SteadyClock::now();
        for (std::uint64_t number = 0; !stop.stop_requested(); ++number) {
            const auto due = start + std::chrono::duration_cast<SteadyClock::duration>(
                                         interval * static_cast<double>(number));
            std::this_thread::sleep_until(due);
            sink_->write(frame);
            late_ += SteadyClock::now() > due + interval;
        }
    }

    std::unique_ptr<FrameSink> sink_;
    std::uint64_t late_ = 0;
    std::jthread thread_;
};

using StreamList = std::vector<std::unique_ptr<PlayStream>>;

// Plays until the end, or until a frame is missing; the number of frames that were due per stream.
std::uint64_t playAll(const StreamList& streams, const Work& work, std::uint64_t frames,
                      SteadyClock::time_point start, SteadyClock::duration interval)
{
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        std::this_thread::sleep_until(start + interval * static_cast<std::int64_t>(frame));
        bool complete = true;
        for (const auto& stream : streams) {
            complete &= stream->isThere(frame);
            stream->consumed(frame);
            stream->allow(frame + 1 + work.windowFrames);
        }
        if (!complete && work.stopAtLate)
            return frame + 1;
    }
    return frames;
}

}  // namespace

PlayStream::PlayStream(const std::string& path, const Work& work, std::uint64_t frames)
    : work_(work),
      frames_(frames),
      framesInFile_(std::max<std::uint64_t>(2, sizeOf(path) / work.block) - 1),  // and room for the shift
      arrivals_(frames)
{}

void PlayStream::arrived(std::uint64_t frame)
{
    arrivals_[frame] = SteadyClock::now().time_since_epoch().count();
    if (work_.slowOneIn != 0 && frame % work_.slowOneIn == work_.slowOneIn - 1)
        std::this_thread::sleep_for(std::chrono::milliseconds(work_.slowMs));
}

Json peers::play(const Work& work)
{
    std::optional<Engine> engine;
    if (work.peer == "fsys")
        engine.emplace(work);
    const auto frames = static_cast<std::uint64_t>(work.seconds * work.framesPerSecond[0]);
    StreamList streams;
    for (unsigned i = 0; i < work.streams; ++i) {
        const std::string& path = work.paths.at(i);
        streams.push_back(engine ? makeFsysStream(path, work, frames) : makeThreadStream(path, work, frames));
    }
    const auto interval = std::chrono::duration_cast<SteadyClock::duration>(
        std::chrono::duration<double>(1 / work.framesPerSecond[0]));
    SideRecording recording(work);
    Meter meter;
    meter.start();
    const auto start = SteadyClock::now() + preroll;
    for (const auto& stream : streams)
        stream->allow(work.windowFrames);
    const std::uint64_t due = playAll(streams, work, frames, start, interval);
    meter.stop();
    std::uint64_t late = 0;
    for (const auto& stream : streams)
        for (std::uint64_t frame = 0; frame < due; ++frame)
            late += !stream->cameBy(frame, start + interval * static_cast<std::int64_t>(frame));
    const std::uint64_t recordedLate = recording.finish();
    streams.clear();
    const std::uint64_t played = due * work.streams;
    Json report = meter.report(played, played * work.block);
    const double droppedUs = CacheDropper::finish();
    report["dropping_us"] = droppedUs;
    report["cpu_us_per_request"] =
        (report["user_us"].get<double>() + report["sys_us"].get<double>() - droppedUs) /
        static_cast<double>(played);
    report["late"] = late;
    report["recording_late"] = recordedLate;
    return report;
}
