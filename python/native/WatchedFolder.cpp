#include "WatchedFolder.h"

#include "Clips.h"
#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using Path = LightweightString<wchar_t>;

// Times of file systems are coarse: two changes within a tick have one time.
constexpr auto coarsestTick = std::chrono::seconds(3);

std::filesystem::path nativePath(const Path& path) { return std::filesystem::path(toUTF8(path).str()); }

// The cookie of a name that scans take for media; not valid for others.
Cookie cookieOfMedia(const std::wstring& name)
{
    if (!SystemCache::isEligible(name))
        return {};
    return Cookie::fromCompleteForm(std::wstring_view(name).substr(0, name.find(L'.')));
}

bool isSame(const MediaFileInfo& file, const MaterialFilename& name)
{
    return file.getMaterialFilename().getDrive() == name.getDrive() &&
           file.getMaterialFilename().getPath() == name.getPath();
}

bool indexKnows(const Cookie& cookie, const MaterialFilename& name)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
    if (!entry)
        return false;
    bool known = isSame(entry->getHighResFile(), name);
    for (const MediaFileInfo& proxy : entry->copyProxyFiles())
        known = known || isSame(proxy, name);
    return known;
}

void dropRecord(const Cookie& cookie, const MaterialFilename& name)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
    if (!entry)
        return;
    if (const MediaFileInfo high = entry->getHighResFile(); isSame(high, name))
        entry->removeFile(high);
    // The index drops proxies by what they point at.
    for (const MediaFileInfo& proxy : entry->copyProxyFiles())
        if (isSame(proxy, name))
            entry->removeProxyFile(proxy.getPhysicalFilename(false));
}

// Not by the index's own removal, which deletes from the disk.
void dropFromIndex(const Cookie& cookie, const MaterialFilename& name)
{
    dropRecord(cookie, name);
    // A proxy with audio serves the clip's sound cookies as well.
    const unsigned channels = std::min(MediaFileInfo(name, 1).getProxyAudioChannels(), 255U);
    for (unsigned channel = 1; channel <= channels; ++channel)
        dropRecord(convertCookie(cookie, CookieTypeSound, static_cast<unsigned char>(channel)), name);
}

}  // namespace

WatchedFolder::WatchedFolder(DriveId location, const Path& relative)
    : location_(location), relative_(relative), folder_(MaterialFilename(location, relative).getOsPath())
{}

MaterialFilename WatchedFolder::mediaName(const Name& name) const { return {location_, relative_ + name}; }
Path WatchedFolder::pathOf(const Name& name) const { return folder_ + name; }

std::optional<WatchedFolder::Stamp> WatchedFolder::stampOf(const Name& name) const
{
    const std::uint64_t bytes = OS()->getFileManager()->getFileSize(pathOf(name));
    if (bytes == 0)
        return std::nullopt;
    std::error_code error;
    const auto time = std::filesystem::last_write_time(nativePath(pathOf(name)), error);
    return error ? std::nullopt : std::optional(Stamp{bytes, time});
}

void WatchedFolder::look(const Tell& tell)
{
    if (hasChanged())
        list(tell);
    settle(tell);
    for (auto& [name, file] : files_)
        if (!file.target.empty() || !file.online)
            setOnline(name, file,
                      OS()->getFileManager()->fileExists(file.target.empty() ? pathOf(name) : file.target),
                      tell);
}

void WatchedFolder::goOffline(const Tell& tell)
{
    for (auto& [name, file] : files_)
        setOnline(name, file, false, tell);
    isSettledTime_ = false;
}

bool WatchedFolder::hasChanged()
{
    std::error_code error;
    const auto time = std::filesystem::last_write_time(nativePath(folder_), error);
    if (!error && isSettledTime_ && time == listedTime_)
        return false;
    // An hour of another machine's clock may lie in the future: then it is listed each time.
    const auto age = std::filesystem::file_time_type::clock::now() - time;
    isSettledTime_ = !error && age > coarsestTick;
    listedTime_ = time;
    return true;
}

void WatchedFolder::list(const Tell& tell)
{
    std::vector<iFileManager::DirectoryItem> items;
    // Media in a folder that cannot be listed is not removed.
    if (!OS()->getFileManager()->listDirectory(folder_ + L"*.*", items))
        return;
    std::set<Name> gone;
    for (const auto& [name, file] : files_)
        gone.insert(name);
    for (const iFileManager::DirectoryItem& item : items) {
        const Name name = item.name.str();
        if (!cookieOfMedia(name).valid())
            continue;
        const auto known = files_.find(name);
        if (known != files_.end() && item.size != 0)
            gone.erase(name);
        if (known == files_.end() || (item.size != 0 && stampOf(name) != known->second.stamp))
            pending_.try_emplace(name);
    }
    for (const Name& name : gone)
        drop(name, tell);
}

void WatchedFolder::settle(const Tell& tell)
{
    for (auto at = pending_.begin(); at != pending_.end();) {
        const std::optional<Stamp> now = stampOf(at->first);
        // What the index has been told of by this process is finished.
        const bool rests =
            now && (now == at->second || (!files_.contains(at->first) &&
                                          indexKnows(cookieOfMedia(at->first), mediaName(at->first))));
        if (rests)
            take(at->first, *now, tell);
        const bool gone = !now && !OS()->getFileManager()->fileExists(pathOf(at->first));
        at->second = now;
        at = rests || gone ? pending_.erase(at) : std::next(at);
    }
}

void WatchedFolder::take(const Name& name, const Stamp& stamp, const Tell& tell)
{
    const Cookie cookie = cookieOfMedia(name);
    const MaterialFilename media = mediaName(name);
    const bool isReplaced = files_.contains(name);
    // Filed a second time, a file would become a proxy of itself.
    if (isReplaced)
        dropFromIndex(cookie, media);
    if (isReplaced || !indexKnows(cookie, media))
        SystemCache::addFile(cookie, MediaFileInfo(media, stamp.bytes), true);
    File& file = files_[name];
    file.cookie = cookie;
    file.stamp = stamp;
    file.isProxy = MediaFileInfo(media, stamp.bytes).isProxy();
    file.target = Path();
    if (Path target; MaterialLink::getLinkedFilename(pathOf(name), target))
        file.target = target;
    setOnline(name, file,
              OS()->getFileManager()->fileExists(file.target.empty() ? pathOf(name) : file.target), tell);
}

void WatchedFolder::drop(const Name& name, const Tell& tell)
{
    const auto known = files_.find(name);
    dropFromIndex(known->second.cookie, mediaName(name));
    setOnline(name, known->second, false, tell);
    files_.erase(known);
}

void WatchedFolder::setOnline(const Name& name, File& file, bool online, const Tell& tell) const
{
    if (file.online == online)
        return;
    file.online = online;
    clips::testAgain(file.cookie);
    const char* const kind = file.isProxy ? (online ? "proxy-online" : "proxy-offline")
                                          : (online ? "clip-online" : "clip-offline");
    tell({kind, file.cookie, pathOf(name), location_, {}});
}
