// Plays a clip: asks for its frames ahead of time and takes each when it is due.
//   play_clip PROJECT_SPACE COOKIE FRAMES_PER_SECOND FRAME_BYTES

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "media/MediaReader.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Frames that are under way or ready: enough that a disk which pauses for a few of them does not show.
constexpr std::size_t framesAhead = 8;
constexpr auto preroll = std::chrono::milliseconds(200);

struct Plan
{
    double framesPerSecond;
    std::uint64_t frameBytes;
};

struct Result
{
    unsigned shown = 0;
    unsigned late = 0;
    MediaError error;
};

// A frame that has not come when it is due is late; a player would show the one before once more.
bool isReady(const std::future<MediaReadResult>& frame)
{
    return frame.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

Result play(MediaReader& reader, const Plan& plan)
{
    const std::uint64_t frames = reader.size() / plan.frameBytes;
    const std::chrono::duration<double> interval(1 / plan.framesPerSecond);
    const Clock::time_point start = Clock::now() + preroll;
    std::deque<std::future<MediaReadResult>> ahead;
    Result result;
    std::uint64_t asked = 0;
    for (std::uint64_t number = 0; number < frames; ++number) {
        for (; asked < std::min<std::uint64_t>(frames, number + framesAhead); ++asked)
            ahead.push_back(reader.readAsync(asked * plan.frameBytes, plan.frameBytes));
        std::this_thread::sleep_until(
            start + std::chrono::duration_cast<Clock::duration>(interval * static_cast<double>(number)));
        result.late += isReady(ahead.front()) ? 0U : 1U;
        // The data lives as long as somebody holds it: what is shown may keep its frame.
        const MediaReadResult frame = ahead.front().get();
        ahead.pop_front();
        if (frame.error) {
            result.error = frame.error;
            break;
        }
        ++result.shown;
    }
    return result;
}

int playClip(const Cookie& clip, const Plan& plan)
{
    MediaReader reader(clip, DecodeFormat(eHighRes));
    if (!reader.isOpen()) {
        std::fprintf(stderr, "%s\n", reader.openError().text.c_str());
        return 1;
    }
    const Result result = play(reader, plan);
    std::printf("%u frames, %u late\n", result.shown, result.late);
    if (result.error)
        std::fprintf(stderr, "%s\n", result.error.text.c_str());
    return result.error ? 1 : 0;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    const Plan plan{argumentCount == 5 ? std::strtod(arguments[3], nullptr) : 0,
                    argumentCount == 5 ? std::strtoull(arguments[4], nullptr, 10) : 0};
    if (!(plan.framesPerSecond > 0) || plan.frameBytes == 0) {
        std::fprintf(stderr, "usage: play_clip PROJECT_SPACE COOKIE FRAMES_PER_SECOND FRAME_BYTES\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const int result = playClip(Cookie(LightweightString<char>(arguments[2]), true), plan);
    Shutdown::run(Shutdown::eNormalExit);
    return result;
}
