// The recorders: clips of all lengths on all places; old clips are removed, so that there is always room.

#include "Pattern.h"
#include "Qz/Utf8.h"
#include "Studio.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "media/MediaWriter.h"

#include <chrono>
#include <filesystem>
#include <thread>

namespace {

constexpr std::size_t clipsKept = 16;
constexpr std::uint64_t clipBytesMax = 12'000'000;

std::uint64_t writeFrames(MediaWriter& writer, std::uint64_t number, std::mt19937_64& random)
{
    const std::uint64_t wanted = 1 + random() % clipBytesMax;
    std::uint64_t position = 0;
    while (position < wanted) {
        std::vector<std::byte> frame(1 + random() % 600'000);
        fillPattern(number, position, frame);
        if (!writer.write(frame))
            break;
        position += frame.size();
        if (random() % 20 == 0)
            writer.flush();
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
    }
    return position;
}

void recordOne(Studio& studio, std::mt19937_64& random)
{
    Clip clip;
    clip.cookie = Cookie::makeNew();
    clip.number = studio.nextNumber++;
    const Qz::Ptr<MediaDrive> drive =
        DiskManager::getVolume(locationAt(studio.places[random() % studio.places.size()]));
    if (!drive) {
        studio.report.wrong("a location has gone");
        return;
    }
    MediaWriter writer(clip.cookie, drive->getFsysLocation(clip.cookie, L"raw"));
    const std::uint64_t written = writeFrames(writer, clip.number, random);
    if (random() % 10 == 0) {
        writer.abandon();
        ++studio.report.abandoned;
        return;
    }
    const MediaRecording recorded = writer.finish();
    if (!recorded.complete || recorded.bytes != written) {
        studio.report.wrong("a recording is not complete: " + recorded.error.text);
        return;
    }
    clip.bytes = recorded.bytes;
    clip.path = recorded.path;
    ++studio.report.recordings;
    studio.report.bytesRecorded += recorded.bytes;
    studio.catalog.add(std::make_shared<const Clip>(clip));
}

void removeOne(Studio& studio)
{
    const ClipPtr clip = studio.catalog.takeOldest(clipsKept);
    if (!clip)
        return;
    // A scan that is under way may know nothing of it.
    while (!SystemCache::findEntryForCookie(clip->cookie))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    // Its answer says nothing: a scan that found the file once more has made it its own proxy, so that it is
    // deleted twice.
    SystemCache::removeFile(clip->cookie, true, eHighRes | eProxy);
    if (std::filesystem::exists(toUTF8(clip->path).str()))
        studio.report.wrong("not removed: " + toUTF8(clip->path).str());
    ++studio.report.removals;
}

}  // namespace

void recordClips(Studio& studio, unsigned recorder)
{
    std::mt19937_64 random(studio.seed * 1000 + recorder);
    while (studio.rests.mayGoOn()) {
        recordOne(studio, random);
        removeOne(studio);
    }
}
