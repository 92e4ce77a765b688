#include "Recorder.h"

#include "Interruption.h"
#include "Progress.h"
#include "fsys/DiskManager.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <span>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t spareBytes = 65536;  // frames begin at different places of the same noise
constexpr auto lookAgain = std::chrono::milliseconds(50);

std::vector<std::byte> makeNoise(std::uint64_t bytes)
{
    std::vector<std::byte> noise(bytes);
    std::mt19937_64 random(bytes);
    for (std::size_t i = 0; i + sizeof(std::uint64_t) <= noise.size(); i += sizeof(std::uint64_t)) {
        const std::uint64_t number = random();
        std::copy_n(reinterpret_cast<const std::byte*>(&number), sizeof number, noise.data() + i);
    }
    return noise;
}

// What all streams share.
struct Studio
{
    const RecordingPlan& plan;
    std::vector<std::byte> noise;
    Clock::time_point start;
    std::atomic<std::uint64_t> bytesWritten{0};
    std::atomic<unsigned> atWork{0};

    [[nodiscard]] std::uint64_t frames() const
    {
        return std::max<std::uint64_t>(1, static_cast<std::uint64_t>(plan.seconds * plan.framesPerSecond));
    }
    [[nodiscard]] Clock::time_point due(std::uint64_t frame) const
    {
        const std::chrono::duration<double> since(static_cast<double>(frame) / plan.framesPerSecond);
        return start + std::chrono::duration_cast<Clock::duration>(since);
    }
    [[nodiscard]] std::span<const std::byte> frame(unsigned stream, std::uint64_t number) const
    {
        const std::uint64_t from = (number * 4099 + stream * std::uint64_t{977}) % spareBytes;
        return std::span(noise).subspan(static_cast<std::size_t>(from),
                                        static_cast<std::size_t>(plan.frameBytes));
    }
};

void recordFrames(Studio& studio, unsigned stream, MediaWriter& writer, RecordedStream& result)
{
    for (std::uint64_t frame = 0; frame < studio.frames(); ++frame) {
        if (!Interruption::sleepUntil(studio.due(frame)))
            return;
        const auto before = Clock::now();
        if (!writer.write(studio.frame(stream, frame)))
            return;
        const auto after = Clock::now();
        ++result.frames;
        result.lateWrites += after > studio.due(frame + 1) ? 1U : 0U;
        result.worstWriteMs =
            std::max(result.worstWriteMs, std::chrono::duration<double, std::milli>(after - before).count());
        studio.bytesWritten += studio.plan.frameBytes;
        if (studio.plan.keepTransfers)
            result.transfers.push_back(
                TimedTransfer::between(studio.start, before, after, studio.plan.frameBytes)
                    .dueAt(studio.start, studio.due(frame + 1)));
    }
}

void recordStream(Studio& studio, unsigned stream, RecordedStream& result)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(studio.plan.location);
    result.cookie = Cookie::makeNew();
    MediaWriterOptions options;
    options.hash = true;
    options.lowSpaceBytes = studio.plan.lowSpaceBytes;
    options.onSpaceLow = [&result](std::uint64_t) { result.spaceWasLow = true; };
    MediaWriter writer(result.cookie, drive->getFsysLocation(result.cookie, L"raw"), options);
    if (writer.isOpen()) {
        recordFrames(studio, stream, writer, result);
        result.recording = writer.finish();
    } else {
        result.recording.error = writer.error();
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - studio.start).count();
    --studio.atWork;
}

void showProgress(const Studio& studio)
{
    Progress progress("record", studio.frames() * studio.plan.frameBytes * studio.plan.streams,
                      Progress::Unit::bytes);
    std::uint64_t shown = 0;
    while (studio.atWork != 0) {
        std::this_thread::sleep_for(lookAgain);
        const std::uint64_t written = studio.bytesWritten;
        progress.advance(written - shown);
        shown = written;
    }
}

}  // namespace

RecordingResult record(const RecordingPlan& plan)
{
    const Interruption interruption;
    RecordingResult result;
    result.streams.resize(plan.streams);
    Studio studio{plan, makeNoise(plan.frameBytes + spareBytes), Clock::now()};
    studio.atWork = plan.streams;
    {
        std::vector<std::jthread> threads;
        for (unsigned stream = 0; stream < plan.streams; ++stream)
            threads.emplace_back(recordStream, std::ref(studio), stream, std::ref(result.streams[stream]));
        showProgress(studio);
    }
    for (const RecordedStream& stream : result.streams)
        result.seconds = std::max(result.seconds, stream.seconds);
    result.interrupted = Interruption::isWanted();
    return result;
}
