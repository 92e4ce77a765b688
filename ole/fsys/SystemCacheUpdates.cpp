// Updates of single cookies and of whole locations, and what listeners hear of them.

#include "fsys/SystemCache.h"

#include "Qz/Assert.h"
#include "fsys/CacheHold.h"
#include "fsys/CookieIndex.h"
#include "os/OS.h"

#include <mutex>

bool SystemCache::addFile(const Cookie& cookie, const MediaFileInfo& file, bool notify)
{
    const CacheHold hold(lock_, "addFile");
    const Qz::Ptr<FsysDirectoryEntry> entry = findOrInsert(cookie);
    entry->addFile(cookie, file);
    if (notify)
        notifyListeners(cookie, entry, file.isProxy() ? proxyAddedMsgType_ : fileAddedMsgType_);
    return true;
}

bool SystemCache::addFile(const Cookie& cookie, const MaterialFilename& name, bool notify)
{
    const std::uint64_t size = OS()->getFileManager()->getFileSize(name.getOsPath());
    return addFile(cookie, MediaFileInfo(name, size), notify);
}

void SystemCache::addProxyFile(const Cookie& cookie, const MediaFileInfo& file)
{
    const std::lock_guard hold(lock_);
    findOrInsert(cookie)->addProxyFile(file);
}

namespace {

// Judged by what the entry holds before anything is deleted.
bool leavesIndex(unsigned mediaTypes, bool hasHighRes, bool hasProxies)
{
    switch (mediaTypes) {
    case eHighRes | eProxy:
        return true;
    case eProxy:
        return !hasHighRes;
    case eHighRes:
        return !hasProxies;
    default:
        return false;
    }
}

}  // namespace

unsigned SystemCache::removeFile(const Cookie& cookie, bool notify, unsigned mediaTypes)
{
    const CacheHold hold(lock_, "removeFile");
    const Qz::Ptr<FsysDirectoryEntry> entry(files_.find(cookie));
    if (!Qz::verify(static_cast<bool>(entry), "false", "ole/fsys/SystemCache line 385"))
        return 1;

    if (leavesIndex(mediaTypes, entry->hasHighResFile(), entry->hasProxies()))
        files_.erase(cookie);
    if (notify)
        notifyListeners(cookie, entry, fileRemovedMsgType_);
    return entry->deleteFiles(mediaTypes);
}

void SystemCache::removeProxyFile(const Cookie& cookie, const MediaFileInfo& file)
{
    if (const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie))
        entry->removeProxyFile(file.getPhysicalFilename(false));
}

void SystemCache::renameProxyFile(const Cookie& cookie, const LightweightString<wchar_t>& oldName,
                                  const LightweightString<wchar_t>& newName)
{
    if (const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie))
        entry->renameProxyFile(oldName, newName);
}

void SystemCache::renameFile(const LightweightString<wchar_t>& /*oldName*/,
                             const LightweightString<wchar_t>& /*newName*/)
{
    Qz::assertionFailed("false", "ole/fsys/SystemCache line 393");
}

void SystemCache::realiseLinks(const Cookie& cookie)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    if (!entry)
        return;
    entry->realiseLinks(false);
    if (!entry->getPhysicalFilename(false).empty())
        notifyListeners(cookie, entry, fileAddedMsgType_);
}

void SystemCache::updateLinks(const Cookie& cookie, const DriveId& destDrive)
{
    if (const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie))
        entry->updateLinks(destDrive);
}

unsigned SystemCache::updateStatus(const Cookie& cookie, unsigned mediaTypes)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    return entry ? entry->updateStatus(mediaTypes) : eStatusOffline;
}

void SystemCache::removeMediaLocation(DriveId drive)
{
    const std::lock_guard hold(lock_);
    files_.eraseIf([&](const FsysDirectoryEntry& entry) { return entry.highResDrive() == drive; });
}

void SystemCache::notifyListeners(const Cookie& cookie, const Qz::Ptr<FsysDirectoryEntry>& entry,
                                  unsigned int type)
{
    instance().issueNotification(NotifyMsg(cookie.asString(true), entry), static_cast<int>(type));
}
