// DiskManager: network names and the shares of this machine.

#include "Qz/StringHelpers.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "fsys/VolumeList.h"
#include "os/OS.h"

// Null until the shares have been read; what it points at is then kept to the end of the process.
constinit std::atomic<const DiskManager::LocalShares*> DiskManager::localShares_{nullptr};

namespace {

// Deliberate: a prefix by its characters alone. A share MEDIA also claims names in MEDIA2, and an empty or
// missing prefix claims every name there is.
bool isPrefixOf(const LightweightString<wchar_t>& prefix, const LightweightString<wchar_t>& unc)
{
    return !unc.empty() && Qz::startsWithIgnoringCase(unc, prefix);
}

}  // namespace

bool DiskManager::discoverLocalShares()
{
    static constinit std::atomic<bool> discovered{false};
    if (discovered.exchange(true))
        return true;
    iFileManager* const files = OS()->getFileManager();
    auto* const shares = new LocalShares;
    for (const auto& share : files->listShares(files->getMachineName()))
        shares->add({share.uncName, share.localPath});
    localShares_ = shares;
    return true;
}

DiskManager::Path DiskManager::convertUNCtoLocalShare(const Path& unc)
{
    discoverLocalShares();
    const LocalShares* const shares = localShares_;
    if (!shares)  // another thread is reading them just now
        return {};
    for (const LocalShareInfo& share : *shares)
        if (isPrefixOf(share.uncName, unc))
            // The character behind the share's name is its separator; a local path ends with its own.
            return share.localPath + unc.substr(share.uncName.size() + 1);
    return {};
}

MaterialFilename DiskManager::convertUNCtoFsysFilename(const Path& unc)
{
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        if (isPrefixOf(drive->getUNCName(), unc))
            return {drive->getId(), unc.substr(drive->getUNCName().size())};
    return {};
}

DiskManager::Path DiskManager::convertLocalToUNC(const MaterialFilename& filename)
{
    return OS()->getFileManager()->getUNCName(filename.getOsPath());
}
