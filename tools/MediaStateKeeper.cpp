#include "MediaStateKeeper.h"

#include "Locations.h"
#include "Transferred.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaStatus.h"
#include "os/OS.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>

namespace {

constexpr std::size_t samplesMax = 300;  // five minutes of one each second
constexpr std::size_t clipsListedMax = 200;
constexpr double slowAnswerSeconds = 0.5;
constexpr double secondsPerMinute = 60;
constexpr std::int32_t withoutLimit = std::numeric_limits<std::int32_t>::max();

double secondsOf(MediaStateKeeper::Clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

double wallClock()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string typeText(iDiskDrive::eType type)
{
    static constexpr std::array<const char*, 5> texts{"unknown", "local", "removable", "network", "optical"};
    return texts[std::min<std::size_t>(type, texts.size() - 1)];
}

// Nothing but its path is known of a place that was never reached.
LocationState missingLocation(const std::string& root)
{
    LocationState location;
    location.path = root.size() > 1 ? root.substr(0, root.size() - 1) : root;
    location.name = std::filesystem::path(location.path).filename().string();
    location.reach = reachOf(root);
    // It answers now and the watch takes it up at its next look.
    if (location.reach == Reach::online)
        location.reach = Reach::offline;
    return location;
}

unsigned statusNow(const TestedFile& file)
{
    const bool exists = OS()->getFileManager()->fileExists(file.isLink ? file.target : file.path);
    return exists ? eStatusOnline : eStatusOffline;
}

// The media cache tests a file once; whoever watches for hours asks again.
MediaSummary summariseNow(const Clip& clip)
{
    MediaSummary summary = summarise(clip);
    summary.info.mediaStatuses_ = {};
    summary.info.proxyStatuses_ = {};
    for (TestedChannel& channel : summary.channels) {
        if (channel.high)
            summary.info.mediaStatuses_.add(channel.high->status = statusNow(*channel.high));
        for (TestedFile& proxy : channel.proxies)
            summary.info.proxyStatuses_.add(proxy.status = statusNow(proxy));
    }
    return summary;
}

// Bytes a second that a counter has gone up by; a counter that began again tells nothing.
std::optional<double> rateOf(const std::optional<std::uint64_t>& before,
                             const std::optional<std::uint64_t>& now, double seconds)
{
    if (!before || !now || *now < *before || seconds <= 0)
        return std::nullopt;
    return static_cast<double>(*now - *before) / seconds;
}

}  // namespace

const MediaState& MediaStateKeeper::gather()
{
    gatherRecordings();
    gatherLocations();
    gatherClips();
    state_.time = wallClock();
    return state_;
}

void MediaStateKeeper::gatherLocations()
{
    const std::vector<Mount> mounts = mountList();
    state_.locations.clear();
    for (const DriveId& id : allLocations())
        state_.locations.push_back(locationState(id, mounts));
    for (const std::string& root : watch_.missingRoots())
        state_.locations.push_back(missingLocation(root));
    for (LocationState& location : state_.locations)
        fillRates(location);
    std::erase_if(before_, [&](const auto& known) {
        return std::none_of(state_.locations.begin(), state_.locations.end(),
                            [&](const LocationState& location) { return location.path == known.first; });
    });
}

LocationState MediaStateKeeper::locationState(const DriveId& id, const std::vector<Mount>& mounts) const
{
    LocationState location;
    location.id = id.asString().str();
    location.name = nameOf(id);
    location.path = rootOf(id);
    location.reach = watch_.reach(id);
    if (const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id))
        location.type = typeText(drive->getType());
    fillRecordRate(location);
    if (location.reach != Reach::online)
        return location;
    fillSpace(id, location);
    const std::string real = utf8(OS()->getFileManager()->resolvePath(wide(location.path + "/")));
    if (const Mount* const mount = mountHolding(mounts, real))
        if (const auto counted = transferredOn(*mount)) {
            location.readBytes = counted->readBytes;
            location.writtenBytes = counted->writtenBytes;
        }
    return location;
}

void MediaStateKeeper::fillSpace(const DriveId& id, LocationState& location) const
{
    VolumeInfo info;
    const auto begin = Clock::now();
    if (DiskManager::getVolInfo(id, &info) == 1) {
        location.freeBytes = info.freeBytes;
        location.totalBytes = info.totalBytes;
    }
    location.answerSeconds = secondsOf(Clock::now() - begin);
    location.slow = info.slow || *location.answerSeconds > slowAnswerSeconds;
    const std::int32_t minutes =
        DiskManager::get_mins_of_recording_left(id, location.recordRate * secondsPerMinute, 0);
    if (minutes != withoutLimit)
        location.minutesLeft = std::max(minutes, 0);
}

void MediaStateKeeper::fillRecordRate(LocationState& location) const
{
    for (const RecordingState& recording : state_.recordings)
        if (recording.location == location.id)
            location.recordRate += recording.rate;
    if (location.recordRate <= 0)
        location.recordRate = recordRate_;
}

void MediaStateKeeper::fillRates(LocationState& location)
{
    const auto now = Clock::now();
    const auto [known, isNew] = before_.try_emplace(location.path);
    Before& before = known->second;
    if (!isNew) {
        const double seconds = secondsOf(now - before.time);
        location.readRate = rateOf(before.readBytes, location.readBytes, seconds);
        location.writeRate = rateOf(before.writtenBytes, location.writtenBytes, seconds);
        // Where no device counts, room that has gone was written; what is deleted meanwhile hides it.
        if (!location.writtenBytes && before.freeBytes && location.freeBytes)
            location.writeRate = rateOf(location.freeBytes, before.freeBytes, seconds).value_or(0);
    }
    before.time = now;
    before.readBytes = location.readBytes;
    before.writtenBytes = location.writtenBytes;
    before.freeBytes = location.freeBytes;
    before.samples.push_back({wallClock(), location.readRate, location.writeRate, location.freeBytes});
    if (before.samples.size() > samplesMax)
        before.samples.pop_front();
}

void MediaStateKeeper::gatherRecordings()
{
    const auto begin = Clock::now();
    if (recordingPace_.isDue(begin)) {
        std::vector<DriveId> online = allLocations();
        std::erase_if(online, [&](const DriveId& id) { return !watch_.isOnline(id); });
        recordings_.look(online, begin);
        recordingPace_.took(begin, Clock::now());
    }
    state_.recordings = recordings_.states(Clock::now());
}

void MediaStateKeeper::gatherClips()
{
    const auto begin = Clock::now();
    if (!clipPace_.isDue(begin))
        return;
    state_.clips = {};
    state_.offlineClips.clear();
    for (const Clip& clip : everyClip()) {
        const MediaSummary summary = summariseNow(clip);
        if (summary.locations().empty())
            continue;
        state_.clips.count(summary);
        if (state_.offlineClips.size() < clipsListedMax && std::string(summary.offline()) != "none")
            state_.offlineClips.push_back(describeStatus(summary));
    }
    clipPace_.took(begin, Clock::now());
}

Json MediaStateKeeper::history() const
{
    const auto orNull = [](const auto& value) { return value ? Json(*value) : Json(nullptr); };
    Json locations = Json::array();
    for (const auto& [path, known] : before_) {
        Json time = Json::array(), read = Json::array(), write = Json::array(), free = Json::array();
        for (const Sample& sample : known.samples) {
            time.push_back(sample.time);
            read.push_back(orNull(sample.readRate));
            write.push_back(orNull(sample.writeRate));
            free.push_back(orNull(sample.freeBytes));
        }
        locations.push_back({{"path", path},
                             {"time", time},
                             {"read_rate", read},
                             {"write_rate", write},
                             {"free_bytes", free}});
    }
    return {{"locations", locations}};
}
