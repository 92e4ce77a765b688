#pragma once

#include "Qz/Cookie.h"
#include "Qz/EditChanType.h"
#include "Qz/LightweightString.h"
#include "Qz/Notifier.h"
#include "Qz/Ptr.h"
#include "Qz/QzLokiSingleton.h"
#include "Qz/Vector.h"
#include "fsys/DecodeFormat.h"
#include "fsys/DriveId.h"
#include "fsys/Export.h"
#include "fsys/FsysDirectoryEntry.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/ScanCounts.h"
#include "os/CriticalSection.h"

#include <cstdint>
#include <functional>
#include <list>
#include <vector>

class CookieIndex;

// SystemCache: the index of the process from cookies to their media files.
//
// All operations are static; the one instance is what listeners register with.
//
// Threads:    any.
// Locks:      one recursive lock around the index. Scans hold it while they file what they listed, addFile
//             and removeFile for their whole run, queries only to find the entry.
// Listeners:  run on the thread that issues and, but for realiseLinks, under that lock: they may call the
//             cache, and must not wait for a thread that needs it. The message's text is the complete form of
//             the cookie, its payload the FsysDirectoryEntry.
// Masks:      media types are eHighRes, eProxy or both; statuses are eMediaStatus values.
// Errors:     an unknown cookie gives the answer named at the operation. Nothing throws but enumerate.
class FSYS_API SystemCache : public Notifier
{
public:
    ~SystemCache() override;
    // Made on first use, destroyed at exit.
    [[nodiscard]] static SystemCache& instance();

    // --- filling the index

    // Empties the index and scans every media location of the drive registry. Without force only the first
    // call in the process does anything. Queries of other threads find the index empty or half filled
    // meanwhile.
    static void initialise(bool force);
    // Scans the "Material" and "Sound" folders of a media location and logs the two folders. The id of no
    // drive is ignored.
    static void addMediaLocation(DriveId drive);
    // Scans one folder, whose path ends with the separator: each file whose name up to the first '.' is the
    // text of a cookie (in any case) is filed under that cookie. Empty files and those that isEligible
    // refuses are passed over. Adds and never removes; a file that is found again replaces itself, and
    // where there are no proxies becomes its own proxy as well. A folder that cannot be listed changes
    // nothing. No notification.
    static void addDirectory(const MaterialFilename& folder);
    // False for companions of media files, which carry the whole name of the media file and one of a fixed
    // set of endings. Upper and lower case differ.
    [[nodiscard]] static bool isEligible(const LightweightString<wchar_t>& fileName);
    // Empties the index. No notification.
    static void invalidate();
    // Sum of all scans since the index was last emptied.
    [[nodiscard]] static ScanCounts getScanCounts();

    // --- queries

    // The entry of a cookie, or null. A cookie that is neither of vision nor of sound prints an assertion
    // line.
    [[nodiscard]] static Qz::Ptr<FsysDirectoryEntry> findEntryForCookie(const Cookie& cookie);
    // Name of the high-res file; without one that of the first proxy; otherwise no drive and an empty path.
    [[nodiscard]] static MaterialFilename find(const Cookie& cookie);
    // True when the index knows a file for cookie; the disk is not asked.
    [[nodiscard]] static bool fileExists(const Cookie& cookie);
    // True when the high-res file is a link file.
    [[nodiscard]] static bool isLinked(const Cookie& cookie);
    // Bytes of the high-res file when it was found, or 0.
    [[nodiscard]] static std::uint64_t fileSize(const Cookie& cookie);
    // The file to open for cookie in format (FsysDirectoryEntry::findFileForCookie). False for an unknown
    // cookie, which leaves file alone, and when the media is offline. True with an empty file means: known,
    // but nothing to open.
    static bool findFileForCookie(const Cookie& cookie, LightweightString<wchar_t>& file,
                                  const DecodeFormat& format);
    // Replaces out by the proxies of cookie; false when there are none. An unknown cookie leaves out alone.
    static bool getProxyFiles(const Cookie& cookie, std::list<MediaFileInfo>& out);

    // The next four visit the channels of a shot: vision 0 to 23, then sound 1 to 32, each kind up to the
    // first channel that is missing.
    // Appends to out the physical names of the high-res files; empty for a channel that has only proxies.
    static void getFilesForShot(const Cookie& shot, Vector<LightweightString<wchar_t>>& out);
    // Appends to out what find answers for each channel.
    static void getMediaFilesForShot(const Cookie& shot, Vector<MaterialFilename>& out);
    // The entries of the channels.
    [[nodiscard]] static std::vector<Qz::Ptr<FsysDirectoryEntry>> getClipMediaFiles(const Cookie& shot);
    // Sum of the sizes that the disk tells for getFilesForShot, in bytes.
    [[nodiscard]] static std::uint64_t getShotFileSize(const Cookie& shot);

    // Drive of the shot's vision channel 0 (types 1 and 127) or of its first known sound channel (type 2, up
    // to channel max_audio_chans_in_shot); no drive for any other type.
    [[nodiscard]] static DriveId getDriveForCookie(const Cookie& cookie, EditChanType type);
    // Visits all entries in the order of their cookies until visit answers false. Holds the lock: visit may
    // call the cache, and must neither block for long nor wait for a thread that needs it. An empty function
    // throws std::bad_function_call unless the index is empty.
    static void enumerate(std::function<bool(const Cookie&, const FsysDirectoryEntry&)> visit);

    // --- updates

    // Files a media file, new or known, under cookie; true in every case. With notify listeners hear
    // "SysCacheAddProxy" for a proxy, otherwise "SysCacheAdd".
    static bool addFile(const Cookie& cookie, const MediaFileInfo& file, bool notify);
    // The same with the size that the disk tells: 0 bytes for a missing file.
    static bool addFile(const Cookie& cookie, const MaterialFilename& name, bool notify);
    // Adds a proxy to cookie alone, not to the clip's sound cookies. No notification.
    static void addProxyFile(const Cookie& cookie, const MediaFileInfo& file);
    // Deletes media of cookie and their companions from disk and drops them; the cookie leaves the index when
    // nothing of it is left, but stays for any mask other than 1, 2 and 3. With notify listeners hear
    // "SysCacheDel" before anything is deleted. The result is 1, or the platform's error code of the last
    // deletion that failed. An unknown cookie prints an assertion line and gives 1.
    static unsigned removeFile(const Cookie& cookie, bool notify, unsigned mediaTypes);
    // Drops a proxy from the entry; the disk is not touched. No notification.
    static void removeProxyFile(const Cookie& cookie, const MediaFileInfo& file);
    // A proxy was moved on disk (FsysDirectoryEntry::renameProxyFile). No notification.
    static void renameProxyFile(const Cookie& cookie, const LightweightString<wchar_t>& oldName,
                                const LightweightString<wchar_t>& newName);
    // Not supported: prints an assertion line and changes nothing.
    static void renameFile(const LightweightString<wchar_t>& oldName,
                           const LightweightString<wchar_t>& newName);
    // Writes the link files of the cookie's media where none stand; listeners hear "SysCacheAdd" when the
    // high-res file has a physical name. Takes the lock only to find the entry.
    static void realiseLinks(const Cookie& cookie);
    // Moves the cookie's link to another drive (FsysDirectoryEntry::updateLinks). No notification.
    static void updateLinks(const Cookie& cookie, const DriveId& destDrive);
    // Status of the cookie's media (FsysDirectoryEntry::updateStatus); eStatusOffline for an unknown cookie.
    static unsigned updateStatus(const Cookie& cookie, unsigned mediaTypes);
    // Drops every cookie whose high-res file is on drive. Cookies that only have proxies there stay; they go
    // with the id of no drive. The disk is not touched. No notification.
    static void removeMediaLocation(DriveId drive);

    // --- notification types: "SysCacheAdd", "SysCacheDel", "SysCacheAddProxy", "SysCacheDelProxy"

    static unsigned int fileAddedMsgType_;     // a file was added
    static unsigned int fileRemovedMsgType_;   // files are about to be deleted
    static unsigned int proxyAddedMsgType_;    // a proxy was added
    static unsigned int proxyRemovedMsgType_;  // issued by other modules, not by this library

private:
    friend class Qz::SingletonHolder<SystemCache>;
    friend class SystemCacheScan;  // files what it listed

    SystemCache();

    // The entry of a cookie, made when there is none. An entry is in the index before it is filled, because
    // filling it may file the same cookie again.
    static Qz::Ptr<FsysDirectoryEntry> findOrInsert(const Cookie& cookie);
    static void notifyListeners(const Cookie& cookie, const Qz::Ptr<FsysDirectoryEntry>& entry,
                                unsigned int type);

    static const int debug_;  // not 0: scans are traced in the log
    static CriticalSection lock_;
    static CookieIndex files_;      // guarded by lock_
    static ScanCounts scanCounts_;  // guarded by lock_
};
