#include "fsys/FsysDirectoryEntry.h"

#include "Qz/Assert.h"
#include "fsys/FileRecords.h"
#include "fsys/MaterialLink.h"
#include "fsys/RecordPool.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <algorithm>
#include <mutex>

using FileRecords::isSameFile;

namespace {

// A real file that was just found is there; whether a link's target is stays to be tested.
unsigned foundStatus(std::uint64_t size, unsigned statusBefore)
{
    return size == MaterialLink::linkFileSize ? statusBefore : eStatusOnline;
}

// Never destroyed: static objects may hold entries to the end.
RecordPool& entryPool()
{
    static RecordPool& pool = *new RecordPool(sizeof(FsysDirectoryEntry));
    return pool;
}

}  // namespace

FsysDirectoryEntry::FsysDirectoryEntry() = default;
FsysDirectoryEntry::~FsysDirectoryEntry() = default;

void* FsysDirectoryEntry::operator new(std::size_t) { return entryPool().take(); }
void FsysDirectoryEntry::operator delete(void* entry) noexcept { entryPool().give(entry); }

FsysDirectoryEntry::FsysDirectoryEntry(DriveId drive, const FolderName& folder, std::wstring_view name,
                                       std::uint64_t size)
    : highRes_(drive, folder, name, size, foundStatus(size, eStatusUnknown))
{}

std::uint64_t FsysDirectoryEntry::fileSize() const
{
    const std::lock_guard hold(guard_);
    return highRes_.sizeBytes();
}

bool FsysDirectoryEntry::isLinked() const { return fileSize() == MaterialLink::linkFileSize; }

const std::list<MediaFileInfo>& FsysDirectoryEntry::getProxyFiles() const
{
    static const Proxies& none = *new Proxies;  // never destroyed: callers may keep the reference to the end
    const std::lock_guard hold(guard_);
    return extras_ ? extras_->proxies : none;
}

MediaFileInfo FsysDirectoryEntry::getHighResFile() const
{
    const std::lock_guard hold(guard_);
    return highRes();
}

std::list<MediaFileInfo> FsysDirectoryEntry::copyProxyFiles() const
{
    const std::lock_guard hold(guard_);
    return extras_ ? extras_->proxies : Proxies();
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
    MediaFileInfo::Details& details = extras().highRes;
    details.linkedFilename = name;
    details.linkKnown = true;
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
    highRes_.setDrive(destDrive);
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
    if (!isSameFile(file, highRes()))
        return;
    highRes_.setSizeBytes(size);
    if (online)
        highRes_.setStatus(eStatusOnline);
    ++changes_;
}

void FsysDirectoryEntry::addFile(const Cookie& cookie, const MediaFileInfo& file)
{
    if (!file.isProxy())
        replaceHighRes(StoredFile(file.getMaterialFilename(), file.size, file.status), file.getDetails());
    else if (insertProxy(file))
        registerSoundChannels(cookie, file);
}

void FsysDirectoryEntry::addListed(FsysDirectoryEntry& listed)
{
    replaceHighRes(std::move(listed.highRes_), MediaFileInfo::Details());
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

void FsysDirectoryEntry::replaceHighRes(StoredFile file, const MediaFileInfo::Details& details)
{
    const std::lock_guard hold(guard_);
    if (highRes_.sizeBytes() > MaterialLink::linkFileSize && file.sizeBytes() == MaterialLink::linkFileSize)
        return;
    // Deliberate: also when the same file is found again, which then is its own proxy.
    if (highRes_.isPresent() && !hasListedProxies())
        appendProxy(highRes());
    file.setStatus(foundStatus(file.sizeBytes(), file.status()));
    setHighRes(std::move(file), details);
    ++changes_;
}

void FsysDirectoryEntry::setHighRes(StoredFile file, const MediaFileInfo::Details& details)
{
    const bool isPlain = !details.linkKnown && details.proxyHeight == 0 && details.proxyAudioChannels == 0;
    if (extras_ || !isPlain)
        extras().highRes = details;
    highRes_ = std::move(file);
}

MediaFileInfo FsysDirectoryEntry::highRes() const
{
    return {highRes_.filename(), extras_ ? extras_->highRes : MediaFileInfo::Details(), highRes_.sizeBytes(),
            highRes_.status()};
}

FsysDirectoryEntry::Extras& FsysDirectoryEntry::extras() const
{
    if (!extras_)
        extras_ = std::make_unique<Extras>();
    return *extras_;
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
    extras().proxies.push_back(file);
    ++changes_;
    return true;
}

MediaFileInfo* FsysDirectoryEntry::findProxyRecord(const MediaFileInfo& file) const
{
    if (!extras_)
        return nullptr;
    Proxies& proxies = extras_->proxies;
    const auto found = std::find_if(proxies.begin(), proxies.end(),
                                    [&](const MediaFileInfo& proxy) { return isSameFile(proxy, file); });
    return found == proxies.end() ? nullptr : &*found;
}

void FsysDirectoryEntry::removeFile(const MediaFileInfo& file)
{
    if (file.isProxy()) {
        removeProxyFile(file.getMaterialFilename().getOsPath());
        return;
    }
    const std::lock_guard hold(guard_);
    if (!highRes_.isNamed(file.getMaterialFilename()))
        return;
    setHighRes(StoredFile(), MediaFileInfo::Details());
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
            extras_->proxies.remove_if([&](const MediaFileInfo& proxy) { return &proxy == record; });
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
