// DiskManager: network names and the shares of this machine.

#include "Qz/StringHelpers.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "fsys/VolumeList.h"
#include "os/OS.h"

#include <mutex>

// Null until the shares have been read; what it points at is then kept to the end of the process.
constinit std::atomic<const DiskManager::LocalShares*> DiskManager::localShares_{nullptr};

namespace {

constinit std::once_flag sharesRead;

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
    std::call_once(sharesRead, &DiskManager::readLocalShares);
    return true;
}

void DiskManager::readLocalShares()
{
    iFileManager* const files = OS()->getFileManager();
    auto* const shares = new LocalShares;
    for (const auto& share : files->listShares(files->getMachineName()))
        shares->add({share.uncName, share.localPath});
    localShares_ = shares;
}

DiskManager::Path DiskManager::convertUNCtoLocalShare(const Path& unc)
{
    discoverLocalShares();
    // Another thread may be reading them just now, and a drive asks this only once, when it is made. The
    // platform knows nothing of the registry, so it cannot come back here from within the reading.
    std::call_once(sharesRead, &DiskManager::readLocalShares);
    for (const LocalShareInfo& share : *localShares_.load())
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
