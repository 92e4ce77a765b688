// Streams that are played against a clock: a frame is late when it was not there at its time.

#include "CacheDropper.h"
#include "Engine.h"
#include "Sinks.h"
#include "Streams.h"
#include "TestFile.h"

#include <optional>
#include <stdexcept>
#include <thread>

namespace {

constexpr auto preroll = std::chrono::milliseconds(1000);
// Frames of each stream that are read before the clock starts. The engine takes new memory until its list of
// a file is full, with 41 requests.
constexpr std::uint64_t rehearsalFrames = 48;
constexpr auto rehearsalMax = std::chrono::minutes(1);

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

// Reads the first frames as fast as they come.
void rehearse(const StreamList& streams, const Work& work)
{
    const SteadyClock::time_point latest = SteadyClock::now() + rehearsalMax;
    for (const auto& stream : streams)
        stream->allow(work.windowFrames);
    for (std::uint64_t frame = 0; frame < rehearsalFrames; ++frame)
        for (const auto& stream : streams) {
            while (!stream->isThere(frame)) {
                if (SteadyClock::now() > latest)
                    throw std::runtime_error("a frame of the rehearsal did not come");
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                // A refusal is asked again.
                stream->allow(std::min(frame + work.windowFrames, rehearsalFrames));
            }
            stream->consumed(frame);
            stream->allow(std::min(frame + 1 + work.windowFrames, rehearsalFrames));
        }
}

// When a frame is due.
struct Clock
{
    SteadyClock::time_point start;
    SteadyClock::duration interval;

    [[nodiscard]] SteadyClock::time_point due(std::uint64_t frame) const
    {
        return start + interval * static_cast<std::int64_t>(frame - rehearsalFrames);
    }
};

// Plays until before end, or until a frame is missing; the first frame that was not due.
std::uint64_t playAll(const StreamList& streams, const Work& work, std::uint64_t end, const Clock& clock)
{
    for (std::uint64_t frame = rehearsalFrames; frame < end; ++frame) {
        std::this_thread::sleep_until(clock.due(frame));
        bool complete = true;
        for (const auto& stream : streams) {
            complete &= stream->isThere(frame);
            stream->consumed(frame);
            stream->allow(frame + 1 + work.windowFrames);
        }
        if (!complete && work.stopAtLate)
            return frame + 1;
    }
    return end;
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
    const auto frames = rehearsalFrames + static_cast<std::uint64_t>(work.seconds * work.framesPerSecond[0]);
    StreamList streams;
    for (unsigned i = 0; i < work.streams; ++i) {
        const std::string& path = work.paths.at(i);
        streams.push_back(engine ? makeFsysStream(path, work, frames) : makeThreadStream(path, work, frames));
    }
    const auto interval = std::chrono::duration_cast<SteadyClock::duration>(
        std::chrono::duration<double>(1 / work.framesPerSecond[0]));
    rehearse(streams, work);
    SideRecording recording(work);
    Meter meter;
    meter.start();
    const Clock clock{SteadyClock::now() + preroll, interval};
    for (const auto& stream : streams)
        stream->allow(rehearsalFrames + work.windowFrames);
    const std::uint64_t end = playAll(streams, work, frames, clock);
    meter.stop();
    std::uint64_t late = 0;
    for (const auto& stream : streams)
        for (std::uint64_t frame = rehearsalFrames; frame < end; ++frame)
            late += !stream->cameBy(frame, clock.due(frame));
    const std::uint64_t recordedLate = recording.finish();
    streams.clear();
    const std::uint64_t played = (end - rehearsalFrames) * work.streams;
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
