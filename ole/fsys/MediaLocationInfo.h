#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "Qz/Vector.h"
#include "fsys/Export.h"
#include "fsys/MaterialFilename.h"

// MediaLocationInfo: where the media of one clip are and whether they can be reached.
//
// The application fills the four members, from the cache's queries, and then asks.
//
// Statuses:   values of eMediaStatus, one for each file.
// Threads:    a plain value. isClipOffline asks the cache, from any thread; the display strings ask the
//             drive registry and the platform, on the application's control thread.
class FSYS_API MediaLocationInfo
{
public:
    // True when every status is eStatusOffline, also when there is none.
    [[nodiscard]] bool allMediaOffline() const;
    // True when at least one status is eStatusOffline.
    [[nodiscard]] bool someMediaOffline() const;
    // True when at least one proxy is eStatusOnline.
    [[nodiscard]] bool someProxyOnline() const;

    // Asks the cache, which tests files on the disk that it has not tested before. A cookie that the cache
    // does not know is offline; one that is neither sound nor vision prints an assertion line and counts
    // as offline. mediaTypes is a mask of eHighRes and eProxy; any other prints an assertion line. With
    // eProxy alone a cookie that the cache knows never counts as offline: ask for both.
    [[nodiscard]] static bool isClipOffline(const Cookie& c, unsigned mediaTypes);

    // What the user calls the drive of the first primary location. Empty when there is none, or when that
    // one has no drive or no path, whatever follows it.
    [[nodiscard]] LightweightString<wchar_t> getPrimaryLocationDisplayString() const;
    // The first linked location, resolved by the platform.
    // REQUIRES: linkedLocations_ is not empty. Otherwise an assertion line is printed.
    [[nodiscard]] LightweightString<wchar_t> getLinkedLocationDisplayString() const;

    Vector<unsigned int> mediaStatuses_;                  // of each media file of the clip
    Vector<unsigned int> proxyStatuses_;                  // of each proxy of the clip
    Vector<MaterialFilename> primaryLocations_;           // of the clip's media, the primary one first
    Vector<LightweightString<wchar_t>> linkedLocations_;  // what its link files point at
};
