#include "Playback.h"

#include "Progress.h"
#include "StreamReader.h"

#include <algorithm>
#include <memory>
#include <thread>

namespace {

constexpr std::uint64_t windowBytes = std::uint64_t{64} << 20;
constexpr std::uint64_t windowFramesMax = 16;
constexpr auto preroll = std::chrono::milliseconds(250);

// One stream and how far its reads have run ahead.
class Track
{
public:
    Track(const Source& source, std::uint64_t frameBytes)
        : reader_(source.path),
          frameBytes_(std::min(frameBytes, source.size)),
          framesInFile_(std::max<std::uint64_t>(1, source.size / std::max<std::uint64_t>(1, frameBytes)))
    {}

    [[nodiscard]] bool isOpen() const { return reader_.isOpen(); }
    // Asks for frames until those up to before are under way. False when the engine takes none.
    bool askUntil(std::uint64_t before)
    {
        for (; asked_ < before; ++asked_)
            if (!reader_.ask(asked_ % framesInFile_ * frameBytes_, static_cast<unsigned>(frameBytes_)))
                return false;
        return true;
    }
    StreamReader::Piece next() { return reader_.next(); }

private:
    StreamReader reader_;
    std::uint64_t frameBytes_;
    std::uint64_t framesInFile_;
    std::uint64_t asked_ = 0;
};

using Tracks = std::vector<std::unique_ptr<Track>>;

std::string openAll(const PlaybackPlan& plan, Tracks& tracks)
{
    for (const Source& source : plan.streams) {
        tracks.push_back(std::make_unique<Track>(source, plan.frameBytes));
        if (!tracks.back()->isOpen())
            return "cannot open " + utf8(source.path);
    }
    return {};
}

void judge(const StreamReader::Piece& piece, StreamReader::Clock::time_point due, PlaybackResult& result)
{
    const double overdueMs = std::chrono::duration<double, std::milli>(piece.ended - due).count();
    ++result.framesDue;
    if (piece.succeeded && overdueMs <= 0)
        ++result.framesOnTime;
    else
        ++result.framesLate;
    result.worstWaitMs = std::max(result.worstWaitMs, overdueMs);
    if (!piece.succeeded)
        result.error = "a frame could not be read";
}

}  // namespace

PlaybackResult play(const PlaybackPlan& plan)
{
    PlaybackResult result;
    Tracks tracks;
    result.error = openAll(plan, tracks);
    if (!result.error.empty())
        return result;

    const auto frames = static_cast<std::uint64_t>(plan.seconds * plan.framesPerSecond);
    const std::uint64_t window = std::clamp<std::uint64_t>(windowBytes / plan.frameBytes, 2, windowFramesMax);
    const std::chrono::duration<double> interval(1 / plan.framesPerSecond);
    const auto begin = StreamReader::Clock::now();
    const auto start = begin + preroll;
    Progress progress("play", frames);
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        for (const auto& track : tracks)
            if (!track->askUntil(std::min(frames, frame + window))) {
                result.error = "the engine takes no more reads";
                return result;
            }
        const auto due = start + std::chrono::duration_cast<StreamReader::Clock::duration>(
                                     interval * static_cast<double>(frame));
        std::this_thread::sleep_until(due);
        for (const auto& track : tracks) {
            const StreamReader::Piece piece = track->next();
            judge(piece, due, result);
            if (plan.keepTransfers)
                result.transfers.push_back(
                    TimedTransfer::between(begin, piece.asked, piece.ended, piece.bytes).dueAt(begin, due));
        }
        progress.advance(1);
    }
    return result;
}
