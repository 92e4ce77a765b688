#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "Qz/iObject.h"
#include "fsys/DriveId.h"
#include "fsys/Export.h"
#include "os/iDiskDrive.h"

#include <atomic>
#include <cstdint>
#include <mutex>

class MaterialFilename;

// VolumeInfo: what a drive's volume says of itself at the moment of asking.
struct FSYS_API VolumeInfo
{
    std::uint64_t freeBytes = 0;   // that the caller may still fill
    std::uint64_t totalBytes = 0;  // of the volume
    bool isLocal = false;          // the drive's type is that of a local disk
    bool slow = false;             // the I/O engine found the volume too slow for its transfers
};

// MediaDrive: the record of one media drive or media location.
//
// Threads:    any. What identifies a drive (id, paths, type) never changes after construction; flags,
//             sector size and space figures are atomics; the name changes under a guard of its own.
// Locks:      that guard, for copying a string only.
// Ownership:  made with new, held by Qz::Ptr. The registry (DiskManager) holds one per location; a Ptr
//             taken from there keeps the record alive after the location has left the registry.
// Units:      space figures in whole megabytes (bytes >> 20), held as doubles.
// Registry:   names, locations and space of a drive are asked of the registry by id, so a drive that is
//             not registered has no user name but its own, no locations and no space.
class FSYS_API MediaDrive : public iObject
{
public:
    // Of the operating system.
    using Path = LightweightString<wchar_t>;

    // No drive: id '0', local type, sector size 0, everything else empty.
    MediaDrive();
    // A named drive without a path, with the space of the registered drive of that id, asked of its volume
    // now; 0 when there is none.
    MediaDrive(const DriveId& id, const LightweightString<wchar_t>& name);
    // The drive at path, as the registry makes them: path in this system's form without one trailing
    // separator, its network name, its sector size, and for a network drive the local path of the same
    // share where this machine exports it. Space is not asked for: call update after registering.
    MediaDrive(const DriveId& id, const Path& path, iDiskDrive::eType type);
    // A named space record: copies id, name and space figures, and nothing that would make it a location.
    MediaDrive(const MediaDrive& other);
    MediaDrive& operator=(const MediaDrive&) = delete;
    ~MediaDrive() override;

    // --- the record

    // Its id in the registry.
    [[nodiscard]] const DriveId& getId() const { return id_; }
    // The user's name; empty for an unnamed drive.
    [[nodiscard]] LightweightString<wchar_t> getName() const;
    // In memory only; DiskManager::renameMediaLocation keeps a name.
    void setName(const LightweightString<wchar_t>& name);
    // True when the user's name is empty.
    [[nodiscard]] bool is_unnamed() const;
    // The kind of volume, as told when the drive was made.
    [[nodiscard]] iDiskDrive::eType getType() const { return type_; }
    // Root of the location in this system's form, less one trailing separator. Empty for "/".
    [[nodiscard]] const Path& getPath() const { return path_; }
    // Root with one trailing separator, ready for comparisons; empty when the root is.
    [[nodiscard]] const Path& getRootLocation() const { return rootLocation_; }
    // Network name of the root; null when it has none.
    [[nodiscard]] const Path& getUNCName() const { return uncName_; }
    // Where this machine itself keeps the share of a network drive; empty for all others.
    [[nodiscard]] const Path& getLocalShare() const { return localShare_; }
    // True when discovery found the drive, false when a user or a list file added it.
    [[nodiscard]] bool isAutoDiscovered() const { return autoDiscovered_.load(std::memory_order_relaxed); }
    // Says which; the registry does.
    void setAutoDiscovered(bool found) { autoDiscovered_.store(found, std::memory_order_relaxed); }
    // Bytes.
    [[nodiscard]] std::uint32_t getSectorSize() const { return sectorSize_.load(std::memory_order_relaxed); }
    // Asks the volume of the root for its sector size; 512 when it does not know. False when there is no
    // such volume; the size then stays.
    bool setSectorSize();
    // The volume answered too slowly for the engine's last transfers.
    [[nodiscard]] bool isSlow() const { return slow_.load(std::memory_order_relaxed); }
    // Says so, or takes it back; the engine does.
    void setSlow(bool slow) { slow_.store(slow, std::memory_order_relaxed); }

    // --- names

    // The user's name; the local name of an unnamed drive. The flag has no effect.
    [[nodiscard]] LightweightString<wchar_t> getUserName(bool) const;
    // True when name is, to the letter, what getUserName answers.
    [[nodiscard]] bool has_name(const LightweightString<wchar_t>& name) const;
    // The root; the local path of the same share, where there is one and preferLocalShare is set.
    void getLocalName(Path& name, bool preferLocalShare) const;

    // --- space

    // Refreshes the space figures; 0 when the registry or the volume does not answer. The reserved ids
    // '*' and '?' are never queried and keep their figures.
    void update() const;
    // As of the last refresh, less what drive selection has handed out since; may be negative.
    [[nodiscard]] double getSpaceMB() const { return spaceMB_.load(std::memory_order_relaxed); }
    // All of the volume, as of the last refresh.
    [[nodiscard]] double getCapacityMB() const { return capacityMB_.load(std::memory_order_relaxed); }
    // Each the same figure in bytes; a negative one gives 0.
    [[nodiscard]] std::uint64_t getSpaceBytes() const;
    [[nodiscard]] std::uint64_t getCapacityBytes() const;
    // Refreshes, then answers the free megabytes less the 2 that recordings never use; may be negative.
    [[nodiscard]] double getSpaceForRecording() const;
    // Takes megabytes off the free space until the next refresh.
    void reserveSpace(double megabytes);
    // Asks the volume of the root. False when there is none: isLocal and slow are filled all the same,
    // the byte counts are untouched. REQUIRES: info is not null.
    bool getInfo(VolumeInfo* info) const;

    // --- media folders

    // Each: name of the folder for a type of media: "Material", "Sound", or empty.
    [[nodiscard]] static Path getFolder(CookieType type);
    [[nodiscard]] static Path getFolder(const Cookie& cookie);
    // Absolute folder for a type of media, with trailing separator; for a type without folder the root
    // with trailing separator. Empty when the root is.
    [[nodiscard]] Path getLocation(CookieType type) const;
    // Absolute name of the cookie's media file. The dot before the extension is always there.
    [[nodiscard]] Path getLocation(const Cookie& cookie, const LightweightString<wchar_t>& extension) const;
    // The folder relative to the root, with a separator on both sides; empty for a type without folder.
    [[nodiscard]] static Path getFsysLocation(CookieType type);
    // Name of the cookie's media file on this drive; its path is empty for a cookie without folder.
    [[nodiscard]] MaterialFilename getFsysLocation(const Cookie& cookie,
                                                   const LightweightString<wchar_t>& extension) const;
    // Makes the media folders where they are missing; false when that fails.
    [[nodiscard]] bool prepareForMedia() const;

private:
    const DriveId id_{};
    LightweightString<wchar_t> name_;  // under nameGuard_
    mutable std::atomic<double> spaceMB_{0.0};
    mutable std::atomic<double> capacityMB_{0.0};
    const iDiskDrive::eType type_ = iDiskDrive::eLocal;
    std::atomic<std::uint32_t> sectorSize_{0};
    std::atomic<bool> slow_{false};
    Path path_;  // this and the other paths are written by the constructor alone
    Path uncName_;
    Path localShare_;
    std::atomic<bool> autoDiscovered_{false};

    Path rootLocation_;
    mutable std::mutex nameGuard_;
};
