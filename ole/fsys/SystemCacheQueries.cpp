// Queries: one look-up each; whatever an entry is asked, it is asked without the cache's lock.

#include "fsys/SystemCache.h"

#include "fsys/FileRecords.h"
#include "os/OS.h"
#include "support/ConfigInt.h"

#include <algorithm>

using FileRecords::isPresent;

namespace {

constexpr unsigned visionChannels = 24;  // 0 to 23
constexpr unsigned soundChannels = 32;   // 1 to 32

// Calls visit with the cookie of each channel of a kind until it answers false: channels are numbered
// without gaps.
template <class Visit>
void walkChannels(const Cookie& shot, CookieType type, unsigned first, unsigned count, Visit& visit)
{
    for (unsigned channel = first; channel < first + count; ++channel)
        if (!visit(convertCookie(shot, type, static_cast<unsigned char>(channel))))
            return;
}

template <class Visit>
void walkShot(const Cookie& shot, Visit visit)
{
    walkChannels(shot, CookieTypeVision, 0, visionChannels, visit);
    walkChannels(shot, CookieTypeSound, 1, soundChannels, visit);
}

DriveId firstSoundDrive(const Cookie& cookie)
{
    static const int channelsMax = config_int("max_audio_chans_in_shot", 16);
    if (channelsMax == 0)
        return {};
    // Channel 1 is tried whatever the maximum; channel numbers repeat after 256.
    const int last = std::clamp(channelsMax, 1, 256);
    for (int channel = 1; channel <= last; ++channel) {
        const MaterialFilename found =
            SystemCache::find(convertCookie(cookie, CookieTypeSound, static_cast<unsigned char>(channel)));
        if (isPresent(found))
            return found.getDrive();
    }
    return {};
}

}  // namespace

MaterialFilename SystemCache::find(const Cookie& cookie)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    return entry ? entry->primaryFilename() : MaterialFilename();
}

bool SystemCache::fileExists(const Cookie& cookie) { return isPresent(find(cookie)); }

bool SystemCache::isLinked(const Cookie& cookie)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    return entry && entry->isLinked();
}

std::uint64_t SystemCache::fileSize(const Cookie& cookie)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    return entry ? entry->fileSize() : 0;
}

bool SystemCache::findFileForCookie(const Cookie& cookie, LightweightString<wchar_t>& file,
                                    const DecodeFormat& format)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    if (!entry)
        return false;
    file = entry->findFileForCookie(format);
    // Deliberate: an entry without files counts as online, so callers see "known, nothing to open".
    return !file.empty() || entry->updateStatus(eHighRes | eProxy) != eStatusOffline;
}

bool SystemCache::getProxyFiles(const Cookie& cookie, std::list<MediaFileInfo>& out)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    if (!entry)
        return false;
    out = entry->copyProxyFiles();
    return !out.empty();
}

void SystemCache::getFilesForShot(const Cookie& shot, Vector<LightweightString<wchar_t>>& out)
{
    for (const Qz::Ptr<FsysDirectoryEntry>& entry : getClipMediaFiles(shot))
        out.add(entry->getPhysicalFilename(false));
}

void SystemCache::getMediaFilesForShot(const Cookie& shot, Vector<MaterialFilename>& out)
{
    walkShot(shot, [&](const Cookie& channel) {
        const MaterialFilename found = find(channel);
        if (isPresent(found))
            out.add(found);
        return isPresent(found);
    });
}

std::vector<Qz::Ptr<FsysDirectoryEntry>> SystemCache::getClipMediaFiles(const Cookie& shot)
{
    std::vector<Qz::Ptr<FsysDirectoryEntry>> entries;
    walkShot(shot, [&](const Cookie& channel) {
        const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(channel);
        if (entry)
            entries.push_back(entry);
        return static_cast<bool>(entry);
    });
    return entries;
}

std::uint64_t SystemCache::getShotFileSize(const Cookie& shot)
{
    Vector<LightweightString<wchar_t>> names;
    getFilesForShot(shot, names);
    std::uint64_t total = 0;
    for (const LightweightString<wchar_t>& name : names)
        total += OS()->getFileManager()->getFileSize(name);
    return total;
}

DriveId SystemCache::getDriveForCookie(const Cookie& cookie, EditChanType type)
{
    switch (type) {
    case EditChanVision:
    case EditChanAnyVision:
        return find(convertCookie(cookie, CookieTypeVision, 0)).getDrive();
    case EditChanAudio:
        return firstSoundDrive(cookie);
    }
    return {};
}
