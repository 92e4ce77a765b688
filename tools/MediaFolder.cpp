#include "MediaFolder.h"

#include "Answer.h"
#include "ProxyFiles.h"
#include "fsys/SystemCache.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace {

// The cookie of a name that scans take for media.
Cookie mediaCookie(const std::string& name)
{
    return SystemCache::isEligible(wide(name)) ? cookieOfName(wide(name)) : Cookie();
}

bool isSameName(const MediaFileInfo& file, const MaterialFilename& name)
{
    return file.getMaterialFilename().getDrive() == name.getDrive() &&
           file.getMaterialFilename().getPath() == name.getPath();
}

bool cacheKnows(const Cookie& cookie, const MaterialFilename& name)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
    if (!entry)
        return false;
    bool known = isSameName(entry->getHighResFile(), name);
    for (const MediaFileInfo& proxy : entry->copyProxyFiles())
        known = known || isSameName(proxy, name);
    return known;
}

void dropRecord(const Cookie& cookie, const MediaFileInfo& record)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
    if (!entry)
        return;
    entry->removeFile(record);
    // A full-resolution file may be listed as a proxy; and a link is listed by what it points at.
    for (const MediaFileInfo& proxy : entry->copyProxyFiles())
        if (isSameName(proxy, record.getMaterialFilename()))
            entry->removeProxyFile(proxy.getPhysicalFilename(false));
}

void dropFromCache(const Cookie& cookie, const MediaFileInfo& record)
{
    dropRecord(cookie, record);
    // A proxy with audio serves the clip's sound cookies as well.
    for (unsigned channel = 1; channel <= std::min(record.getProxyAudioChannels(), 255U); ++channel)
        dropRecord(convertCookie(cookie, CookieTypeSound, static_cast<unsigned char>(channel)), record);
}

// Not by the cache's own removal, which deletes from the disk.
void tellOfRemoval(const Cookie& cookie, const MediaFileInfo& record)
{
    const unsigned type =
        record.isProxy() ? SystemCache::proxyRemovedMsgType_ : SystemCache::fileRemovedMsgType_;
    SystemCache::instance().issueNotification(
        NotifyMsg(cookie.asString(true), SystemCache::findEntryForCookie(cookie)), static_cast<int>(type));
}

}  // namespace

MediaFolder::MediaFolder(const DriveId& location, const std::string& name, bool onServer)
    : location_(location),
      relative_("/" + name + "/"),
      path_(utf8(MaterialFilename(location, wide("/" + name)).getOsPath())),
      onServer_(onServer)
{
    // Names that the scan has not met yet stay unseen, and so are told of.
    Names known;
    for (const std::string& file : listing())
        if (const Cookie cookie = mediaCookie(file); cookie.valid() && cacheKnows(cookie, mediaName(file)))
            known.push_back(file);
    for (const auto& [file, stamp] : stampsOf(known))
        seen_[file] = stamp.value_or(Stamp());
    noteDifferences();
}

bool MediaFolder::exists()
{
    const auto isFolder = [path = path_] {
        std::error_code error;
        return std::filesystem::is_directory(path, error);
    };
    return asked<bool>(isFolder, false);
}

void MediaFolder::noteChange(const std::string& name)
{
    if (mediaCookie(name).valid())
        pending_.insert_or_assign(name, Stamp());
}

void MediaFolder::noteDifferences()
{
    Names names = listing();
    for (const auto& [name, stamp] : seen_)
        names.push_back(name);
    std::erase_if(names, [&](const std::string& name) { return pending_.contains(name); });
    for (const auto& [name, stamp] : stampsOf(std::move(names))) {
        const auto known = seen_.find(name);
        const Stamp before = known == seen_.end() ? Stamp() : known->second;
        // What cannot be told now is looked at again; on a server all of it is, every second.
        if (stamp != before && (stamp || !onServer_))
            noteChange(name);
    }
}

void MediaFolder::look(std::string& file)
{
    Names names;
    for (const auto& [name, stamp] : pending_)
        names.push_back(name);
    for (const auto& [name, now] : stampsOf(std::move(names))) {
        const auto noted = pending_.find(name);
        // A file that has gone rests.
        if (!now || (*now != noted->second && *now != Stamp())) {
            noted->second = now.value_or(Stamp());
            continue;
        }
        file = path_ + "/" + name;
        tell(name, *now);
        file.clear();
        pending_.erase(name);
    }
}

template <class Result>
Result MediaFolder::asked(std::function<Result()> question, Result otherwise)
{
    return onServer_ ? server_.ask<Result>(std::move(question)).value_or(std::move(otherwise)) : question();
}

MediaFolder::Stamps MediaFolder::stampsOf(Names names)
{
    Stamps unknown;
    if (names.empty())
        return unknown;
    if (onServer_)
        for (const std::string& name : names)
            unknown[name] = std::nullopt;
    const auto look = [folder = path_ + "/", names = std::move(names)] {
        Stamps stamps;
        for (const std::string& name : names)
            stamps[name] = stampAt(std::string(folder).append(name));
        return stamps;
    };
    return asked<Stamps>(look, std::move(unknown));
}

std::optional<MediaFolder::Stamp> MediaFolder::stampAt(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        // A server that does not answer has not lost the file.
        const bool gone = errno == ENOENT || errno == ENOTDIR;
        return gone ? std::optional(Stamp()) : std::nullopt;
    }
    if (!S_ISREG(status.st_mode) || status.st_size == 0)
        return Stamp();
    return Stamp{static_cast<std::uint64_t>(status.st_size),
                 static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec,
                 status.st_ino};
}

MediaFolder::Names MediaFolder::listing()
{
    const auto list = [path = path_] {
        Names names;
        std::error_code error;
        for (std::filesystem::directory_iterator at(path, error), end; !error && at != end;
             at.increment(error))
            names.push_back(at->path().filename().string());
        return names;
    };
    return asked<Names>(list, {});
}

MaterialFilename MediaFolder::mediaName(const std::string& name) const
{
    return {location_, wide(relative_ + name)};
}

void MediaFolder::tell(const std::string& name, const Stamp& now)
{
    const Cookie cookie = mediaCookie(name);
    const MaterialFilename media = mediaName(name);
    const auto known = seen_.find(name);
    const Stamp before = known == seen_.end() ? Stamp() : known->second;
    if (now == before)
        return;
    if (before != Stamp()) {
        // Also of a file that has changed: filed a second time, it would become a proxy of itself.
        dropFromCache(cookie, MediaFileInfo(media, before.bytes));
        seen_.erase(known);
    }
    if (now == Stamp()) {
        tellOfRemoval(cookie, MediaFileInfo(media, before.bytes));
        return;
    }
    seen_[name] = now;
    SystemCache::addFile(cookie, MediaFileInfo(media, now.bytes), true);
}
