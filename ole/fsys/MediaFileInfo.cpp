#include "fsys/MediaFileInfo.h"

#include <mutex>

#include "Qz/Utf8.h"
#include "os/OS.h"
#include "support/Log.h"

MediaFileInfo::MediaFileInfo() = default;

MediaFileInfo::MediaFileInfo(const MaterialFilename& file, std::uint64_t sizeBytes)
    : materialFilename_(file), size(sizeBytes)
{
    readProxyFields();
}

MediaFileInfo::MediaFileInfo(const MaterialFilename& file, const LightweightString<wchar_t>& linked,
                             std::uint64_t sizeBytes)
    : materialFilename_(file), linkState_(linkStored), linkedFilename_(linked), size(sizeBytes)
{
    readProxyFields();
}

MediaFileInfo::MediaFileInfo(const MaterialFilename& file, const Details& details, std::uint64_t sizeBytes,
                             unsigned statusBefore)
    : materialFilename_(file),
      linkState_(details.linkKnown ? linkStored : linkNotRead),
      linkedFilename_(details.linkedFilename),
      proxyHeight_(details.proxyHeight),
      proxyAudioChannels_(details.proxyAudioChannels),
      size(sizeBytes),
      status(statusBefore)
{}

MediaFileInfo::Details MediaFileInfo::getDetails() const
{
    Details details{false, {}, proxyHeight_, proxyAudioChannels_};
    details.linkKnown = copyStoredFilename(details.linkedFilename);
    return details;
}

MediaFileInfo::MediaFileInfo(const MediaFileInfo& other)
    : Qz::InternalRefCount(other),
      iObject(other),
      MaterialLink(other),
      materialFilename_(other.materialFilename_),
      proxyHeight_(other.proxyHeight_),
      proxyAudioChannels_(other.proxyAudioChannels_),
      size(other.size.load()),
      status(other.status.load())
{
    if (other.copyStoredFilename(linkedFilename_))
        linkState_ = linkStored;
}

MediaFileInfo& MediaFileInfo::operator=(const MediaFileInfo& other)
{
    LightweightString<wchar_t> name;
    const bool stored = other.copyStoredFilename(name);
    materialFilename_ = other.materialFilename_;
    proxyHeight_ = other.proxyHeight_;
    proxyAudioChannels_ = other.proxyAudioChannels_;
    size = other.size.load();
    status = other.status.load();
    const std::lock_guard guard(linkedFilenameGuard_);
    linkedFilename_.swap(name);
    linkState_ = stored ? linkStored : linkNotRead;
    return *this;
}

MediaFileInfo::~MediaFileInfo() = default;

void MediaFileInfo::readProxyFields()
{
    if (!isProxy())
        return;
    proxyHeight_ = getProxyHeight(materialFilename_.getPath());
    proxyAudioChannels_ = getProxyAudioChannels(materialFilename_.getPath());
}

LightweightString<wchar_t> MediaFileInfo::getLinkFileName() const { return materialFilename_.getOsPath(); }

bool MediaFileInfo::createLinkFile(bool overwrite) const
{
    const LightweightString<wchar_t> target = copyLinkedFilename();
    if (toUTF8(target).size() >= linkFileSize) {
        Log("fsys: the path of %s is too long for a link file\n", toUTF8(target).c_str());
        return false;
    }
    return createLink(materialFilename_.getOsPath(), target, overwrite);
}

LightweightString<wchar_t> MediaFileInfo::readLinkedFilename() const
{
    LightweightString<wchar_t> name;
    if (copyStoredFilename(name))
        return name;
    getLinkedFilename(materialFilename_.getOsPath(), name);
    keepLinkedFilename(name);
    return name;
}

bool MediaFileInfo::storeLinkedFilename(const LightweightString<wchar_t>& name) const
{
    linkState_ = linkNotRead;
    return keepLinkedFilename(name);
}

LightweightString<wchar_t> MediaFileInfo::getPhysicalFilename(bool resolve) const
{
    if (!isLinkFile())
        return materialFilename_.getOsPath();
    const LightweightString<wchar_t> linked = readLinkedFilename();
    return resolve ? OS()->getFileManager()->resolvePath(linked) : linked;
}

bool MediaFileInfo::keepLinkedFilename(const LightweightString<wchar_t>& name) const
{
    std::uint32_t expected = linkNotRead;
    if (!linkState_.compare_exchange_strong(expected, linkBeingStored))
        return false;
    LightweightString<wchar_t> former = name;  // ends up with the name that was there
    {
        const std::lock_guard guard(linkedFilenameGuard_);
        linkedFilename_.swap(former);
    }
    linkState_ = linkStored;
    return true;
}

LightweightString<wchar_t> MediaFileInfo::copyLinkedFilename() const
{
    const std::lock_guard guard(linkedFilenameGuard_);
    return linkedFilename_;
}

bool MediaFileInfo::copyStoredFilename(LightweightString<wchar_t>& name) const
{
    // The state says only that a name was there a moment ago: storeLinkedFilename may be replacing it.
    // The guard makes the copy the name before or the name after that.
    const std::lock_guard guard(linkedFilenameGuard_);
    if (linkState_ != linkStored)
        return false;
    name = linkedFilename_;
    return true;
}
