#include "fsys/FsysDirectoryEntry.h"

#include "Qz/Assert.h"
#include "fsys/FileRecords.h"
#include "fsys/MaterialLink.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <algorithm>
#include <mutex>

using FileRecords::isPresent;
using FileRecords::isSameFile;

FsysDirectoryEntry::FsysDirectoryEntry() = default;
FsysDirectoryEntry::~FsysDirectoryEntry() = default;

std::uint64_t FsysDirectoryEntry::fileSize() const { return highResFile_.size; }

bool FsysDirectoryEntry::isLinked() const { return highResFile_.isLinkFile(); }

const std::list<MediaFileInfo>& FsysDirectoryEntry::getProxyFiles() const
{
    static const Proxies& none = *new Proxies;  // never destroyed: callers may keep the reference to the end
    const std::lock_guard hold(guard_);
    return proxyFiles_ ? *proxyFiles_ : none;
}

MediaFileInfo FsysDirectoryEntry::getHighResFile() const
{
    const std::lock_guard hold(guard_);
    return highResFile_;
}

std::list<MediaFileInfo> FsysDirectoryEntry::copyProxyFiles() const
{
    const std::lock_guard hold(guard_);
    return proxyFiles_ ? *proxyFiles_ : Proxies();
}

LightweightString<wchar_t> FsysDirectoryEntry::getLinkedFilename() const
{
    return askLinkedFilename(copyHighRes());
}

LightweightString<wchar_t> FsysDirectoryEntry::getPhysicalFilename(bool resolve) const
{
    return askPhysicalFilename(copyHighRes(), resolve);
}

LightweightString<wchar_t> FsysDirectoryEntry::getName() const
{
    return stripPath(getPhysicalFilename(true));
}

LightweightString<wchar_t> FsysDirectoryEntry::getLinkFileName() const
{
    return stripPath(getHighResFile().getLinkFileName());
}

void FsysDirectoryEntry::setLinkedFilename(const LightweightString<wchar_t>& name) const
{
    const std::lock_guard hold(guard_);
    highResFile_.storeLinkedFilename(name);
}

bool FsysDirectoryEntry::realiseLinks(bool overwrite)
{
    bool result = getHighResFile().createLinkFile(overwrite);
    for (const MediaFileInfo& proxy : copyProxyFiles())
        result = proxy.createLinkFile(overwrite);
    return result;
}

void FsysDirectoryEntry::updateLinks(const DriveId& destDrive)
{
    const MaterialFilename current = getHighResFile().getMaterialFilename();
    Qz::verify(!hasProxies(), "proxyFiles_.empty()", "ole/fsys/FsysDirectoryEntry line 250");
    Qz::verify(destDrive.valid(), "destDrive.valid()", "ole/fsys/FsysDirectoryEntry line 251");
    Qz::verify(!MaterialLink::linkedFileExists(current),
               "!MaterialLink::linkedFileExists( highResFile_.getMaterialFilename() )",
               "ole/fsys/FsysDirectoryEntry line 252");

    const std::lock_guard hold(guard_);
    highResFile_.setMaterialFilename(
        MaterialFilename(destDrive, highResFile_.getMaterialFilename().getPath()));
    ++changes_;
}

void FsysDirectoryEntry::updateFileSize()
{
    // Deliberate: with size 0 the record is no link, so a link file is measured and not its target.
    MediaFileInfo file = getHighResFile();
    file.size = 0;
    const std::uint64_t size = OS()->getFileManager()->getFileSize(file.getPhysicalFilename(false));
    const bool online = Qz::verify(size > 0, "highResFile_.size > 0", "ole/fsys/FsysDirectoryEntry line 436");

    const std::lock_guard hold(guard_);
    if (!isSameFile(file, highResFile_))
        return;
    highResFile_.size = size;
    if (online)
        highResFile_.status = eStatusOnline;
    ++changes_;
}

void FsysDirectoryEntry::addFile(const Cookie& cookie, const MediaFileInfo& file)
{
    if (!file.isProxy())
        replaceHighRes(file);
    else if (insertProxy(file))
        registerSoundChannels(cookie, file);
}

void FsysDirectoryEntry::addProxyFile(const MediaFileInfo& file) { insertProxy(file); }

// A picture proxy that carries audio serves the clip's sound channels as well.
void FsysDirectoryEntry::registerSoundChannels(const Cookie& cookie, const MediaFileInfo& proxy)
{
    // The count comes from a file name and may be anything; channel numbers repeat after 256.
    const unsigned count = std::min(proxy.getProxyAudioChannels(), 256u);
    for (unsigned channel = 1; channel <= count; ++channel)
        SystemCache::addProxyFile(convertCookie(cookie, CookieTypeSound, static_cast<unsigned char>(channel)),
                                  proxy);
}

void FsysDirectoryEntry::replaceHighRes(const MediaFileInfo& file)
{
    const std::lock_guard hold(guard_);
    if (highResFile_.size > MaterialLink::linkFileSize && file.isLinkFile())
        return;
    // Deliberate: also when the same file is found again, which then is its own proxy.
    if (isPresent(highResFile_) && (!proxyFiles_ || proxyFiles_->empty()))
        appendProxy(highResFile_);
    highResFile_ = file;
    if (!file.isLinkFile())
        highResFile_.status = eStatusOnline;
    ++changes_;
}

bool FsysDirectoryEntry::insertProxy(const MediaFileInfo& file)
{
    const std::lock_guard hold(guard_);
    return appendProxy(file);
}

bool FsysDirectoryEntry::appendProxy(const MediaFileInfo& file)
{
    if (findProxyRecord(file))
        return false;
    if (!proxyFiles_)
        proxyFiles_ = std::make_unique<Proxies>();
    proxyFiles_->push_back(file);
    ++changes_;
    return true;
}

MediaFileInfo* FsysDirectoryEntry::findProxyRecord(const MediaFileInfo& file) const
{
    if (!proxyFiles_)
        return nullptr;
    const auto found = std::find_if(proxyFiles_->begin(), proxyFiles_->end(),
                                    [&](const MediaFileInfo& proxy) { return isSameFile(proxy, file); });
    return found == proxyFiles_->end() ? nullptr : &*found;
}

void FsysDirectoryEntry::removeFile(const MediaFileInfo& file)
{
    if (file.isProxy()) {
        removeProxyFile(file.getMaterialFilename().getOsPath());
        return;
    }
    const std::lock_guard hold(guard_);
    const MaterialFilename& current = highResFile_.getMaterialFilename();
    if (current.getPath() != file.getMaterialFilename().getPath() ||
        current.getDrive() != file.getMaterialFilename().getDrive())
        return;
    highResFile_ = MediaFileInfo();
    ++changes_;
}

void FsysDirectoryEntry::removeProxyFile(const LightweightString<wchar_t>& physicalName)
{
    std::vector<Copy> leaving = copyProxies();
    std::erase_if(leaving,
                  [&](const Copy& copy) { return askPhysicalFilename(copy, false) != physicalName; });

    const std::lock_guard hold(guard_);
    for (const Copy& copy : leaving)
        if (const MediaFileInfo* record = findProxyRecord(copy.file)) {
            proxyFiles_->remove_if([&](const MediaFileInfo& proxy) { return &proxy == record; });
            ++changes_;
        }
}

void FsysDirectoryEntry::renameProxyFile(const LightweightString<wchar_t>& oldName,
                                         const LightweightString<wchar_t>& newName)
{
    const Proxies proxies = copyProxyFiles();
    const auto found = std::find_if(proxies.begin(), proxies.end(), [&](const MediaFileInfo& proxy) {
        return proxy.getMaterialFilename().getOsPath() == oldName;
    });
    if (!Qz::verify(found != proxies.end(), "false", "ole/fsys/FsysDirectoryEntry line 210"))
        return;

    const std::uint64_t newSize = OS()->getFileManager()->getFileSize(newName);
    const std::lock_guard hold(guard_);
    if (MediaFileInfo* record = findProxyRecord(*found)) {
        record->storeLinkedFilename(newName);
        record->size = newSize;
        ++changes_;
    }
}
