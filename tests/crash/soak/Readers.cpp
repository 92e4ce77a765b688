// The readers: every byte that they are given is compared with what was recorded.

#include "Pattern.h"
#include "Probes.h"
#include "Qz/Utf8.h"
#include "Studio.h"
#include "media/MediaReader.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <thread>

namespace {

// A callback is late when for so long, and for many times what the machine itself took meanwhile, this reader
// waited and heard of nothing: not of this read, nor of those that it had asked for before.
constexpr double lateMs = 500;
constexpr double timesTheMachine = 8;
// Of what one reader asks for at a time, so that no read waits long for those of others.
constexpr std::size_t bytesAtATime = 8'000'000;

std::string describe(const Clip& clip, std::uint64_t offset, std::size_t bytes)
{
    return toUTF8(clip.path).str() + " at " + std::to_string(offset) + ", " + std::to_string(bytes) +
           " bytes";
}

class Reading
{
public:
    Reading(Studio& studio, ClipPtr clip, std::mt19937_64& random)
        : studio_(studio), clip_(std::move(clip)), random_(random)
    {}

    void run()
    {
        const std::uint64_t refilled = studio_.refillsEnded;
        auto reader = std::make_unique<MediaReader>(clip_->cookie, DecodeFormat(eHighRes));
        // While the index is filled anew it may not know the clip.
        if (reader->openError().code == MediaErrorCode::unknownClip && studio_.refillsBegun != refilled) {
            ++studio_.report.notYetIndexed;
            reader = std::make_unique<MediaReader>(clip_->path);
        }
        if (!reader->isOpen()) {
            studio_.report.wrong("not opened: " + reader->openError().text);
            return;
        }
        if (reader->size() != clip_->bytes)
            studio_.report.wrong("size " + std::to_string(reader->size()) + " of " +
                                 describe(*clip_, 0, clip_->bytes));
        switch (random_() % 3) {
        case 0:
            readThrough(*reader);
            break;
        case 1:
            readAnywhere(*reader);
            break;
        default:
            readAsynchronously(*reader);
        }
    }

private:
    void check(std::uint64_t offset, std::span<const std::byte> bytes, std::size_t wanted)
    {
        const std::size_t there = static_cast<std::size_t>(
            offset < clip_->bytes ? std::min<std::uint64_t>(wanted, clip_->bytes - offset) : 0);
        if (bytes.size() != there)
            studio_.report.wrong("read " + std::to_string(bytes.size()) + ": " +
                                 describe(*clip_, offset, wanted));
        else if (const std::size_t good = matchingBytes(clip_->number, offset, bytes); good != there)
            studio_.report.wrong("wrong byte " + std::to_string(good) + ": " +
                                 describe(*clip_, offset, wanted));
        ++studio_.report.reads;
        studio_.report.bytesRead += bytes.size();
    }

    void readNow(MediaReader& reader, std::uint64_t offset, std::size_t size)
    {
        std::vector<std::byte> bytes(size);
        MediaError error;
        const std::size_t got = reader.read(offset, bytes, &error);
        if (error)
            studio_.report.wrong(error.text);
        check(offset, std::span(bytes).first(got), size);
    }

    void readThrough(MediaReader& reader)
    {
        reader.setReadAhead(random_() % 2 == 0 ? std::uint64_t{4} << 20 : 0);
        const std::size_t frame = 10'000 + random_() % 900'000;
        for (std::uint64_t offset = 0; offset < clip_->bytes; offset += frame)
            readNow(reader, offset, frame);
    }

    void readAnywhere(MediaReader& reader)
    {
        for (int i = 0; i < 20; ++i)
            readNow(reader, random_() % clip_->bytes, 1 + random_() % 300'000);
    }

    void readAsynchronously(MediaReader& reader)
    {
        // More than the engine takes at once, so that some wait and can be cancelled.
        const unsigned count = 8U << random_() % 4;
        std::atomic<unsigned> called{0};
        {
            std::vector<std::atomic<unsigned>> times(count);
            for (unsigned i = 0; i < count; ++i)
                askFor(reader, bytesAtATime / count, times[i], called);
            if (random_() % 4 == 0)
                reader.cancelAll();
            while (called < count)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            for (const auto& time : times)
                if (time != 1)
                    studio_.report.wrong("a callback came " + std::to_string(time) + " times");
        }
    }

    void askFor(MediaReader& reader, std::size_t bytesMax, std::atomic<unsigned>& times,
                std::atomic<unsigned>& called)
    {
        const std::uint64_t offset = random_() % clip_->bytes;
        const std::size_t size = 1 + random_() % bytesMax;
        const double asked = clockMs();
        reader.readAsync(offset, size, [this, offset, size, asked, &times, &called](MediaReadResult result) {
            ++times;
            noteCallback(asked);
            if (result.error.code == MediaErrorCode::cancelled)
                ++studio_.report.cancelled;
            else if (result.error)
                studio_.report.wrong(result.error.text);
            else
                check(offset, result.data.bytes(), size);
            lastCallbackMs_ = clockMs();
            ++called;
        });
    }

    void noteCallback(double askedMs)
    {
        const double now = clockMs();
        const double since = std::max(askedMs, lastCallbackMs_);
        const double waited = now - since;
        ++studio_.report.callbacks;
        studio_.report.noteLatency(waited);
        if (waited < lateMs)
            return;
        const double machine = studio_.probes.worstBetween(since, now);
        if (waited < machine * timesTheMachine)
            return;
        ++studio_.report.late;
        studio_.report.wrong("a callback after " + std::to_string(waited) + " ms, the machine took " +
                             std::to_string(machine));
    }

    Studio& studio_;
    const ClipPtr clip_;
    std::mt19937_64& random_;
    double lastCallbackMs_ = 0;  // of the thread of the callbacks
};

}  // namespace

void readClips(Studio& studio, unsigned reader)
{
    std::mt19937_64 random(studio.seed * 100 + reader);
    while (studio.rests.mayGoOn()) {
        if (const ClipPtr clip = studio.catalog.pick(random))
            Reading(studio, clip, random).run();
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
    }
}
