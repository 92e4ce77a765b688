#include "ClipFiles.h"

#include "Locations.h"
#include "Session.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"

#include <algorithm>

namespace {

// The index orders cookies by clip, so the channels of one lie side by side.
template <class Wanted>
std::vector<Clip> collectClips(Wanted wanted)
{
    std::vector<Cookie> cookies;
    SystemCache::enumerate([&](const Cookie& cookie, const FsysDirectoryEntry&) {
        if (wanted(cookie))
            cookies.push_back(cookie);
        return true;
    });
    std::vector<Clip> clips;
    for (const Cookie& cookie : cookies) {
        const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
        if (clips.empty() || clips.back().front().cookie.getClip() != cookie.getClip())
            clips.emplace_back();
        clips.back().push_back({cookie, entry});
    }
    // Letters order sound before vision; people look for the picture first.
    for (Clip& clip : clips)
        std::stable_partition(clip.begin(), clip.end(), [](const ClipChannel& channel) {
            return channel.cookie.getType() == CookieTypeVision;
        });
    return clips;
}

TestedFile testedFile(const MediaFileInfo& record)
{
    iFileManager* const files = OS()->getFileManager();
    TestedFile file;
    file.record = record;
    file.path = record.getLinkFileName();
    file.bytes = record.size;
    file.status = record.status;
    const LightweightString<wchar_t> physical = record.getPhysicalFilename(false);
    file.isLink = record.isLinkFile() && physical != file.path;
    if (file.isLink) {
        file.target = physical;
        file.targetExists = files->fileExists(physical);
        file.bytes = files->getFileSize(physical);
    }
    return file;
}

}  // namespace

Clip everyChannelOf(const Cookie& cookie)
{
    std::vector<Clip> clips =
        collectClips([&](const Cookie& candidate) { return candidate.getClip() == cookie.getClip(); });
    return clips.empty() ? Clip() : clips.front();
}

std::vector<Clip> everyClip()
{
    return collectClips([](const Cookie&) { return true; });
}

std::optional<Cookie> knownCookie(const std::string& text)
{
    const Cookie cookie = cookieOf(text);
    if (cookie.valid() && SystemCache::fileExists(cookie))
        return cookie;
    complain("no clip %s is known", text.c_str());
    return std::nullopt;
}

std::optional<unsigned> TestedFile::proxyHeight() const
{
    const unsigned height = record.getProxyHeight();
    if (!record.isProxy() || height == MediaFileInfo::noProxyHeight)
        return std::nullopt;
    return height;
}

std::optional<TestedFile> highResFileOf(const ClipChannel& channel)
{
    channel.entry->updateStatus(eHighRes);
    const MediaFileInfo record = channel.entry->getHighResFile();
    const MaterialFilename& name = record.getMaterialFilename();
    if (!name.getDrive().valid() || name.getPath().empty())
        return std::nullopt;
    return testedFile(record);
}

std::vector<TestedFile> proxyFilesOf(const ClipChannel& channel)
{
    channel.entry->updateStatus(eProxy);
    std::vector<TestedFile> files;
    for (const MediaFileInfo& proxy : channel.entry->copyProxyFiles())
        files.push_back(testedFile(proxy));
    return files;
}

std::vector<TestedFile> copiesOf(const TestedFile& file)
{
    iFileManager* const files = OS()->getFileManager();
    std::vector<TestedFile> copies;
    for (const DriveId& location : allLocations()) {
        const MaterialFilename name(location, file.record.getMaterialFilename().getPath());
        const LightweightString<wchar_t> path = name.getOsPath();
        const std::uint64_t size = files->getFileSize(path);
        // Scans pass over empty files.
        if (location == file.location() || path == file.path || size == 0)
            continue;
        MediaFileInfo record(name, size);
        record.status = eStatusOnline;
        copies.push_back(testedFile(record));
    }
    return copies;
}

const char* statusText(unsigned status)
{
    return status == eStatusOnline ? "online" : status == eStatusOffline ? "offline" : "unknown";
}

Json describeFile(const TestedFile& file)
{
    return {{"file", utf8(file.path)},
            {"bytes", file.bytes},
            {"link", file.isLink},
            {"target", file.isLink ? Json(utf8(file.target)) : Json(nullptr)},
            {"target_exists", file.isLink ? Json(file.targetExists) : Json(nullptr)},
            {"location", file.location().asString().str()},
            {"location_name", nameOf(file.location())},
            {"status", statusText(file.status)}};
}
