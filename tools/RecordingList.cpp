#include "RecordingList.h"

#include "Answer.h"
#include "fsys/DiskManager.h"
#include "media/MediaWriter.h"
#include "os/OS.h"

#include <filesystem>

namespace {

// Growth is taken over so much time: recorders write in blocks, a few each second.
constexpr auto window = std::chrono::seconds(5);

double secondsOf(RecordingList::Clock::duration time) { return std::chrono::duration<double>(time).count(); }

std::string cookieIn(const std::string& file)
{
    const std::string name = std::filesystem::path(file).filename().string();
    const Cookie cookie(wide(name.substr(0, name.find('.'))), true);
    return cookie.valid() ? cookie.asString(true).str() : "";
}

}  // namespace

void RecordingList::look(const std::vector<DriveId>& online, Clock::time_point now)
{
    for (const DriveId& location : online)
        for (const CookieType type : {CookieTypeVision, CookieTypeSound})
            lookInto(location, type, now);
    std::erase_if(recordings_, [](const auto& known) {
        const Recording& recording = known.second;
        return !recording.isThere || !DiskManager::isVolumePresent(recording.location);
    });
}

void RecordingList::lookInto(const DriveId& location, CookieType type, Clock::time_point now)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
    if (!drive)
        return;
    const LightweightString<wchar_t> folder = drive->getLocation(type);
    std::vector<iFileManager::DirectoryItem> items;
    if (!OS()->getFileManager()->listDirectory(folder + L"*" + partialEnding, items))
        return;
    const std::string prefix = utf8(folder);
    for (auto at = recordings_.lower_bound(prefix); at != recordings_.end() && at->first.starts_with(prefix);
         ++at)
        at->second.isThere = false;
    for (const auto& item : items)
        note(location, utf8(folder + item.name), item.size, now);
}

void RecordingList::note(const DriveId& location, const std::string& file, std::uint64_t bytes,
                         Clock::time_point now)
{
    const auto [known, isNew] = recordings_.try_emplace(file);
    Recording& recording = known->second;
    if (isNew) {
        recording.location = location;
        recording.cookie = cookieIn(file);
        recording.grown = now;
    } else if (bytes > recording.samples.back().bytes) {
        recording.grown = now;
        recording.hasGrown = true;
    }
    recording.isThere = true;
    recording.samples.push_back({now, bytes});
    while (recording.samples.size() > 2 && now - recording.samples[1].time >= window)
        recording.samples.pop_front();
}

std::vector<RecordingState> RecordingList::states(Clock::time_point now) const
{
    std::vector<RecordingState> states;
    for (const auto& [file, recording] : recordings_) {
        const Sample& first = recording.samples.front();
        const Sample& last = recording.samples.back();
        RecordingState state;
        state.location = recording.location.asString().str();
        state.file = file;
        state.cookie = recording.cookie;
        state.bytes = last.bytes;
        state.growing = recording.hasGrown && now - recording.grown < window;
        if (state.growing && last.time > first.time && last.bytes > first.bytes)
            state.rate = static_cast<double>(last.bytes - first.bytes) / secondsOf(last.time - first.time);
        state.idleSeconds = secondsOf(now - recording.grown);
        states.push_back(state);
    }
    return states;
}
