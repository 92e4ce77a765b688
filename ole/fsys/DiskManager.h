#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Notifier.h"
#include "Qz/Ptr.h"
#include "Qz/QzResult.h"
#include "Qz/Shutdown.h"
#include "Qz/Vector.h"
#include "fsys/DriveId.h"
#include "fsys/Export.h"
#include "fsys/MediaDrive.h"
#include "fsys/VolumeSnapshot.h"

#include <atomic>
#include <cstdint>

class MaterialFilename;
class VolumeList;

// DiskManager: the registry of the media drives and media locations of this process.
//
// Registered places have an id, '1', '2', ... in the order of registration; '0' is no drive. Ids are not
// used again before reInit, and when all of them have been given out registration is refused.
//
// Threads:    look-ups from any thread, also while drives come and go: they work on the sequence of drives
//             that is published at that moment. Everything that changes the registry, the files or the
//             task drives is for one thread at a time, the application's control thread.
// Locks:      none is held while anything outside of the registry is called (listeners, cache, platform).
// Messages:   "disk manager update" (space refreshed), "MediaLocationsChangeMsg" (locations came, went or
//             changed their name), "MediaOnlineChangeMsg", all without payload, on the thread that causes
//             them. All three have one type number, under the name "DiskManager"; their texts tell them
//             apart.
// Cache:      SystemCache hears of places that discovery, init and addMediaLocation add and that
//             removeMediaLocation removes. It does not hear of addMaterialVolume, deleteMaterialVolume,
//             discardUnmountedDrives, unmountDrives and deInit, nor of the drives that init and reInit
//             drop: after those call SystemCache::initialise(true), or its index lacks places and names
//             dead ids.
// Units:      megabytes are 2^20 bytes.
class FSYS_API DiskManager
{
public:
    // Of the operating system.
    using Path = LightweightString<wchar_t>;
    // What people call a location.
    using Name = LightweightString<wchar_t>;

    // Rule of findBestDrive; any other value selects nothing.
    enum Match : int {
        BestFit = 0,    // the least free space that exceeds the request
        MostSpace = 1,  // the most free space that exceeds the request
    };

    // A folder that this machine exports.
    struct LocalShareInfo
    {
        LightweightString<wchar_t> uncName;    // two backslashes, machine, backslash, share
        LightweightString<wchar_t> localPath;  // the folder
    };

    // --- lifecycle

    // Fills the registry: finds the machine's media drives unless noDiscovery, drops those that the user
    // has unmounted, adds the locations listed in projectSpace and refreshes space. May be called again;
    // ids then start at '1' again.
    static void init(const Path& projectSpace, bool noDiscovery);
    // Empties the registry, starts ids afresh and discovers unless noDiscovery.
    static void reInit(bool noDiscovery);
    // Empties the registry; the next id stays what it is.
    static void deInit();

    // --- registration

    // Registers each local, mounted disk that is no system disk and has a writable "Material" folder.
    // True when the machine has any disk at all.
    static bool discoverVolumes();
    // Registers path and answers its id. A path that is already registered is reported as an assertion,
    // and its drive answered. False, id untouched: path cannot be written, or all ids are used.
    static bool addMaterialVolume(const Path& path, DriveId& id, bool autoDiscovered);
    // The same, then names the drive (by its description file, else by the last component of path) and
    // tells the cache. False for an empty path.
    static bool addDriveForMediaLocation(const Path& path, bool autoDiscovered);
    // Takes a drive out, silently. 1, or 5 when there is no such drive.
    static int deleteMaterialVolume(DriveId id);

    // --- look-ups; none refreshes space

    // Place of the drive; the end when there is none.
    [[nodiscard]] static VolumePosition find(DriveId id);
    // Its index; 4294967295 when there is none.
    [[nodiscard]] static std::uint32_t find_index_for_drive(const DriveId& id);
    // Each true when a drive of that id is registered.
    [[nodiscard]] static bool isVolumePresent(DriveId id);
    [[nodiscard]] static bool isMaterialVolume(DriveId id);
    // Null when there is none.
    [[nodiscard]] static Qz::Ptr<MediaDrive> getVolume(DriveId id);
    // The first drive whose root with one trailing separator is path to the letter, or, failing that, whose
    // local share is; null for none. A path inside a location finds nothing, and a drive without a local
    // share is not found by that: an empty local share matches no path.
    // Cost: compares strings; no allocation, no formatting, no call of the platform.
    [[nodiscard]] static Qz::Ptr<MediaDrive> getVolume(const Path& path);
    // The drive, or the null drive. The reference is good until the drive leaves the registry, so threads
    // other than the control thread take getVolume.
    [[nodiscard]] static MediaDrive& getDriveWithUniqueId(const DriveId& id);
    // By position in the order of registration; '0' past the end.
    [[nodiscard]] static DriveId get_drive(unsigned short index);
    // The same, as the drive; the null drive past the end. The reference is good until the drive leaves the
    // registry, so threads other than the control thread take get_drive and getVolume.
    [[nodiscard]] static MediaDrive& getMediaDrive(unsigned short index);
    // Begins a walk in the order of registration; false, id untouched, when nothing is registered.
    static bool getFirstMaterialVolume(DriveId& id);
    // Goes on from id; false at the end, id is then untouched. An id that is not registered has no next.
    static bool getNextMaterialVolume(DriveId& id);
    // The first drive whose user name (local name where unnamed) is name to the letter; '0' for none.
    [[nodiscard]] static DriveId getDriveWithName(const Name& name);
    // The first drive whose local name is path, ignoring case; '0' for none and for the empty path.
    [[nodiscard]] static DriveId getDriveWithPath(const Path& path);
    // Root of the drive (MediaDrive::getLocalName); empty when there is none.
    [[nodiscard]] static Path getMaterialVolumeName(DriveId id, bool preferLocalShare);
    // 1 when info was filled (MediaDrive::getInfo), else 0. After 0, an unknown id has left all of info
    // untouched; a drive whose volume does not answer has filled the flags and left the bytes.
    static int getVolInfo(DriveId id, VolumeInfo* info);
    // True when discovery found the drive; false for an id that is not registered.
    [[nodiscard]] static bool isVolumeAutoDiscovered(DriveId id);
    // True when the caller may write there.
    [[nodiscard]] static bool writableVolume(const Path& path);
    // Asks for the drive-letter form, as in "D:\": for ids that stand for drive letters. False wherever there
    // are none.
    [[nodiscard]] static bool isVolumeWritable(DriveId id);

    // --- space and messages

    // Refreshes the space of every drive.
    static void updateDrives();
    // The same, and tells listeners at most once in 2 seconds. Nothing while the registry is empty.
    static void update_drives_and_groups();
    // For the application, when media goes on- or off-line.
    static void issueMediaOnlineChangeNotification();
    // Tells listeners that locations came, went or changed.
    static void informInterestedParties();
    // Hears all three messages until the answered handle goes.
    [[nodiscard]] static Qz::Ptr<iObject> addListener(const Qz::Ptr<iCallbackBase<int, NotifyMsg>>& callback);

    // --- files of media locations

    // The drive's description file, "MediaSpaceInfo.txt" in its "Material" folder. REQUIRES: id is
    // registered; any other id means the root of the file system.
    [[nodiscard]] static Path getInfoFileNameFor(DriveId id);
    // The user name in that file; empty when there is none. Contents that are no name are reported.
    [[nodiscard]] static Name getMediaLocationUserName(DriveId id);
    // In memory only; an unknown id is reported as an assertion.
    static void setMediaLocationUserName(DriveId id, Name name);
    // Writes the description file. False when the volume has no free bytes or does not answer; a write that
    // fails is not reported. REQUIRES: the drive's id is registered, as for getInfoFileNameFor.
    static bool saveDriveInfo(const MediaDrive& drive);
    // Names every drive of that id, saves and tells listeners. Result of the last save; 0 for no drive.
    static int renameMediaLocation(const DriveId& id, const Name& name);
    // True when both media folders exist.
    [[nodiscard]] static bool isVolumePreparedForMedia(DriveId id);
    // Makes them where missing; false, and reported, at the first that cannot be made. REQUIRES: id is
    // registered; for any other id the folders are made in the root of the file system.
    static bool prepareVolumeForMedia(DriveId id);
    // Adds the locations listed in file, one root per line, then tells listeners. Always 1; what could not
    // be added is logged and kept for getMissingMediaLocations.
    static int addDrivesFromFile(const Path& file);
    // What the last addDrivesFromFile could not add. On the control thread only.
    [[nodiscard]] static Vector<Path> getMissingMediaLocations();
    // Adds a location for good: it comes back at the next init. False when it is registered already or, with
    // a line in the log, when its path has a line break and cannot be listed; true also when it is only
    // listed because it cannot be reached or written now.
    static bool addMediaLocation(const Path& path);
    // Removes it for good, with all the cache knows of it. False when no root location equals path,
    // ignoring case (the root with its trailing separator).
    static bool removeMediaLocation(const Path& path);
    // Roots of discovered drives that the user has removed. On the control thread only.
    [[nodiscard]] static Vector<Path> getUnmountedDrives();
    // Takes those out of the registry.
    static void discardUnmountedDrives();
    // Takes out every drive with an id above 'Z' (as a signed character) and writes their roots, in UTF-8, to
    // listFile, unless that is null. True when there was any. listFile is a path in the bytes of the file
    // system; what it held is replaced. A list that cannot be opened is not reported, and the drives go all
    // the same.
    static bool unmountDrives(const char* listFile);
    // name when a drive has it, else empty.
    [[nodiscard]] static Name getSaveName(const Name& name);

    // --- choosing a drive

    // A drive with more than that free, by its figures as of the last refresh; what was asked for is taken
    // off them until the next refresh. '0' when no drive has room. For one thread at a time: two callers at
    // once may be given the same room.
    static DriveId findBestDrive(double megabytes, Match match);
    // The last drive in the order of registration that has any room; '0' for none.
    [[nodiscard]] static DriveId find_best_disk();
    // Megabytes, refreshed, less the reserve (MediaDrive::getSpaceForRecording); -2 for an id that is not
    // registered.
    [[nodiscard]] static double getSpaceForRecording(const MediaDrive& drive);
    [[nodiscard]] static double getSpaceForRecording(const DriveId& id);
    // Whole minutes that streams of these rates, in bytes per minute, may be recorded, by refreshed
    // figures; -1 when there is no room and for an id that is not registered. Kept within 32 bits: rates
    // whose sum is 0 give 2147483647, a negative sum gives negative minutes.
    [[nodiscard]] static std::int32_t get_mins_of_recording_left(const DriveId& id, double rateA,
                                                                 double rateB);
    // Remembers the root of a drive (not its local share) for a task, in the user's preferences; '0'
    // forgets it. An id that is not registered is remembered as the empty root, which finds no drive. A null
    // task is the same as an empty one.
    static void setDriveForTask(const char* task, const DriveId& id);
    // The drive that lies at the remembered root, ignoring case; else find_best_disk or '0'.
    [[nodiscard]] static DriveId getDriveForTask(const char* task, bool fallBackToBest);

    // --- network names

    // Reads what this machine exports, once per process. Always true, also while another thread still
    // reads.
    static bool discoverLocalShares();
    // Local path of a network name that begins with the name of a share of this machine, ignoring case;
    // empty for all others. The first share in the order of the platform's list decides, by characters
    // alone: share MEDIA also claims names in MEDIA2, and the one character behind the share's name is
    // dropped whatever it is. Waits while another thread reads the shares for the first time.
    [[nodiscard]] static Path convertUNCtoLocalShare(const Path& unc);
    // The first drive whose network name begins unc, by characters alone, ignoring case, and the rest of
    // unc with its leading separator; a default name when there is none. A drive without network name
    // matches every unc but the empty one.
    [[nodiscard]] static MaterialFilename convertUNCtoFsysFilename(const Path& unc);
    // Network name of a media file; empty when it has none.
    [[nodiscard]] static Path convertLocalToUNC(const MaterialFilename& filename);

private:
    using LocalShares = Vector<LocalShareInfo>;

    // Null when all ids are used.
    static Qz::Ptr<MediaDrive> registerDrive(const Path& path, iDiskDrive::eType type);
    static void discoverDisk(const iDiskDrive& disk);
    // The first drive whose root location is path, ignoring case; null for none.
    static Qz::Ptr<MediaDrive> driveAtLocation(const Path& path);
    static void readLocalShares();
    static void discardDriveAt(const Path& root);
    static void issue(const char* text);
    static GenericNotifier<NotifyMsg>& notifier_;

    static VolumeList volumes_;
    static std::atomic<const LocalShares*> localShares_;
    static Vector<Path>& missingMediaLocations_;
    static Path& projectSpace_;
    static std::atomic<std::uint32_t> timeOfLastSpaceUpdate_;
};

// Empties the registry when the process ends normally (type 0).
FSYS_API void DiskManagerShutdown(Shutdown::eExitType type);

// The drive letter and colon at the start of path; empty unless the first colon stands second.
[[nodiscard]] FSYS_API LightweightString<wchar_t> getDrive(const LightweightString<wchar_t>& path);
