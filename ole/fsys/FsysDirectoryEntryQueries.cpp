// Which file of an entry to open, and what is known of the files' presence.

#include "fsys/FsysDirectoryEntry.h"

#include "Qz/Assert.h"
#include "fsys/FileRecords.h"
#include "os/OS.h"

#include <algorithm>
#include <mutex>

using FileRecords::isPresent;

namespace {

bool existsOnDisk(const LightweightString<wchar_t>& path) { return OS()->getFileManager()->fileExists(path); }

unsigned statusOf(bool exists) { return exists ? eStatusOnline : eStatusOffline; }

bool highResExists(const MediaFileInfo& file)
{
    if (file.isLinkFile())
        return existsOnDisk(file.readLinkedFilename());
    return isPresent(file) && existsOnDisk(file.getPhysicalFilename(false));
}

}  // namespace

LightweightString<wchar_t> FsysDirectoryEntry::findProxy(unsigned minHeight) const
{
    if (!hasProxies())
        return {};
    updateStatus(eProxy);
    const std::optional<Copy> proxy = copyProxyOfHeight(minHeight);
    return proxy ? askPhysicalFilename(*proxy, false) : LightweightString<wchar_t>();
}

LightweightString<wchar_t> FsysDirectoryEntry::findFileForCookie(const DecodeFormat& format) const
{
    LightweightString<wchar_t> result;
    const eProxyLevel level = format.getProxyLevel();
    if (level == eProxy)
        result = findProxy(0);
    else if (level == eAuto && format.getHeight() != 0)
        result = findProxy(format.getHeight());
    if (!result.empty())
        return result;

    const Copy highRes = testHighRes();
    return highRes.file.status == eStatusOnline ? askPhysicalFilename(highRes, false) : findProxy(0);
}

unsigned FsysDirectoryEntry::updateStatus(unsigned mediaTypes) const
{
    const unsigned highRes =
        (mediaTypes & eHighRes) != 0 ? testHighRes().file.status.load() : highResStatus();
    const unsigned proxies = (mediaTypes & eProxy) != 0 ? testProxies() : eStatusUnknown;
    if (mediaTypes == eHighRes)
        return highRes;
    if (mediaTypes == eProxy)
        return proxies;

    Qz::verify(mediaTypes == (eHighRes | eProxy), "mediaTypes == ( eHighRes | eProxy )",
               "ole/fsys/FsysDirectoryEntry line 418");
    if (hasProxies() && proxies != eStatusOnline)
        return eStatusOffline;
    return statusOf(!hasHighResFile() || highRes == eStatusOnline);
}

FsysDirectoryEntry::Copy FsysDirectoryEntry::testHighRes() const
{
    Copy copy = copyHighRes();
    if (copy.file.status == eStatusUnknown) {
        copy.file.status = statusOf(highResExists(copy.file));
        writeBack(copy);
    }
    return copy;
}

unsigned FsysDirectoryEntry::testProxies() const
{
    bool online = false;
    for (const Copy& copy : copyUntestedProxies()) {
        copy.file.status = statusOf(existsOnDisk(copy.file.readLinkedFilename()));
        online = online || copy.file.status == eStatusOnline;
        writeBack(copy);
    }
    return online || someProxyIsOnline() ? eStatusOnline : eStatusUnknown;
}

unsigned FsysDirectoryEntry::highResStatus() const
{
    const std::lock_guard hold(guard_);
    return highRes_.status();
}

bool FsysDirectoryEntry::someProxyIsOnline() const
{
    const std::lock_guard hold(guard_);
    return extras_ && std::any_of(extras_->proxies.begin(), extras_->proxies.end(),
                                  [](const MediaFileInfo& proxy) { return proxy.status == eStatusOnline; });
}

MaterialFilename FsysDirectoryEntry::primaryFilename() const
{
    const std::lock_guard hold(guard_);
    if (highRes_.isPresent())
        return highRes_.filename();
    if (hasListedProxies())
        return extras_->proxies.front().getMaterialFilename();
    return {};
}

DriveId FsysDirectoryEntry::highResDrive() const
{
    const std::lock_guard hold(guard_);
    return highRes_.drive();
}

bool FsysDirectoryEntry::hasHighResFile() const
{
    const std::lock_guard hold(guard_);
    return highRes_.isPresent();
}

bool FsysDirectoryEntry::hasProxies() const
{
    const std::lock_guard hold(guard_);
    return hasListedProxies();
}

FsysDirectoryEntry::Copy FsysDirectoryEntry::copyHighRes() const
{
    const std::lock_guard hold(guard_);
    return {highRes(), false, changes_};
}

std::vector<FsysDirectoryEntry::Copy> FsysDirectoryEntry::copyProxies() const
{
    std::vector<Copy> copies;
    const std::lock_guard hold(guard_);
    if (extras_)
        for (const MediaFileInfo& proxy : extras_->proxies)
            copies.push_back({proxy, true, changes_});
    return copies;
}

std::vector<FsysDirectoryEntry::Copy> FsysDirectoryEntry::copyUntestedProxies() const
{
    std::vector<Copy> copies;
    const std::lock_guard hold(guard_);
    if (extras_)
        for (const MediaFileInfo& proxy : extras_->proxies)
            if (proxy.status == eStatusUnknown)
                copies.push_back({proxy, true, changes_});
    return copies;
}

std::optional<FsysDirectoryEntry::Copy> FsysDirectoryEntry::copyProxyOfHeight(unsigned minHeight) const
{
    const std::lock_guard hold(guard_);
    if (extras_)
        for (const MediaFileInfo& proxy : extras_->proxies)
            if (proxy.getProxyHeight() >= minHeight)
                return Copy{proxy, true, changes_};
    return {};
}

void FsysDirectoryEntry::writeBack(const Copy& copy) const
{
    const std::lock_guard hold(guard_);
    if (changes_ != copy.changes)
        return;
    if (!copy.fromProxies)
        return writeBackHighRes(copy.file);
    const MediaFileInfo* record = findProxyRecord(copy.file);
    if (!record)
        return;
    if (record->status == eStatusUnknown)
        record->status = copy.file.status.load();
    if (record->getLinkState() != 0 && copy.file.getLinkState() == 0)
        record->storeLinkedFilename(copy.file.readLinkedFilename());
}

void FsysDirectoryEntry::writeBackHighRes(const MediaFileInfo& copy) const
{
    if (highRes_.status() == eStatusUnknown)
        highRes_.setStatus(copy.status);
    if (copy.getLinkState() == 0 && !(extras_ && extras_->highRes.linkKnown))
        extras().highRes = copy.getDetails();
}

LightweightString<wchar_t> FsysDirectoryEntry::askPhysicalFilename(const Copy& copy, bool resolve) const
{
    const bool known = copy.file.getLinkState() == 0;
    LightweightString<wchar_t> name = copy.file.getPhysicalFilename(resolve);
    if (!known && copy.file.getLinkState() == 0)
        writeBack(copy);
    return name;
}

LightweightString<wchar_t> FsysDirectoryEntry::askLinkedFilename(const Copy& copy) const
{
    const bool known = copy.file.getLinkState() == 0;
    LightweightString<wchar_t> name = copy.file.readLinkedFilename();
    if (!known)
        writeBack(copy);
    return name;
}
