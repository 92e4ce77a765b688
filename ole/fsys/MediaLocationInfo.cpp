#include "fsys/MediaLocationInfo.h"

#include <algorithm>

#include "Qz/Assert.h"
#include "os/OS.h"

#include "fsys/DiskManager.h"
#include "fsys/MediaDrive.h"
#include "fsys/MediaStatus.h"
#include "fsys/SystemCache.h"

namespace {

bool contains(const Vector<unsigned int>& statuses, unsigned status) { return statuses.locate(status) >= 0; }

}  // namespace

bool MediaLocationInfo::allMediaOffline() const
{
    return std::all_of(mediaStatuses_.begin(), mediaStatuses_.end(),
                       [](unsigned status) { return status == eStatusOffline; });
}

bool MediaLocationInfo::someMediaOffline() const { return contains(mediaStatuses_, eStatusOffline); }

bool MediaLocationInfo::someProxyOnline() const { return contains(proxyStatuses_, eStatusOnline); }

bool MediaLocationInfo::isClipOffline(const Cookie& c, unsigned mediaTypes)
{
    if (c.getType() != CookieTypeSound && c.getType() != CookieTypeVision) {
        Qz::assertionFailed("false", "ole/fsys/MediaLocationInfo line 104");
        return true;
    }
    return SystemCache::updateStatus(c, mediaTypes) == eStatusOffline;
}

LightweightString<wchar_t> MediaLocationInfo::getPrimaryLocationDisplayString() const
{
    if (primaryLocations_.empty())
        return {};
    const MaterialFilename& primary = primaryLocations_[0];
    if (!primary.getDrive().valid() || primary.getPath().empty())
        return {};
    return DiskManager::getDriveWithUniqueId(primary.getDrive()).getUserName(false);
}

LightweightString<wchar_t> MediaLocationInfo::getLinkedLocationDisplayString() const
{
    return OS()->getFileManager()->resolvePath(linkedLocations_[0]);
}
