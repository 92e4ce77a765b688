#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "Qz/iObject.h"
#include "fsys/DecodeFormat.h"
#include "fsys/DriveId.h"
#include "fsys/Export.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/ShortGuard.h"
#include "fsys/StoredFile.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

// FsysDirectoryEntry: the media files of one cookie: the full-resolution (high-res) file, if any, and the
// proxies in the order in which they were added.
//
// Threads:    any operation from any thread, but getProxyFiles: its reference is for a caller that knows
//             the entry to be at rest (copyProxyFiles is not).
// Locks:      a guard of its own around copying and replacing records, never held while the disk, the drive
//             registry or the cache is asked. A query works on copies and writes back what it learned.
// Ownership:  shared through Qz::Ptr; an entry stays valid for its holders after the cache dropped it.
// Statuses:   tested when a query first needs them, then kept until the file is added again.
// Links:      a high-res file of exactly 512 bytes is a link file, whatever it holds.
// Masks:      media types are eHighRes, eProxy or both.
// Size:       entries exist by the million. The high-res file is kept small and its record is made when it is
//             asked for; what most clips have none of lies beside the entry.
class FSYS_API FsysDirectoryEntry final : public iObject
{
public:
    // An entry without files.
    FsysDirectoryEntry();
    ~FsysDirectoryEntry() override;
    FsysDirectoryEntry(const FsysDirectoryEntry&) = delete;
    FsysDirectoryEntry& operator=(const FsysDirectoryEntry&) = delete;
    // Each of a pool (RecordPool).
    static void* operator new(std::size_t bytes);
    static void operator delete(void* entry) noexcept;

    // --- what the entry holds

    // Bytes of the high-res file when it was found; 0 without one.
    [[nodiscard]] std::uint64_t fileSize() const;
    // The list itself; see Threads.
    [[nodiscard]] const std::list<MediaFileInfo>& getProxyFiles() const;
    // A copy, taken in one piece. Without a high-res file a record with no drive and an empty path.
    [[nodiscard]] MediaFileInfo getHighResFile() const;
    // Copies of all proxies, taken in one piece.
    [[nodiscard]] std::list<MediaFileInfo> copyProxyFiles() const;
    // True when the high-res file is a link file.
    [[nodiscard]] bool isLinked() const;

    // What the high-res file points at when it is a link, otherwise its own OS path.
    [[nodiscard]] LightweightString<wchar_t> getLinkedFilename() const;
    // OS path of the high-res media: the target of a link, otherwise the file itself. With resolve a
    // link's target goes through the platform's path resolution.
    [[nodiscard]] LightweightString<wchar_t> getPhysicalFilename(bool resolve) const;
    // The last component of the resolved physical name.
    [[nodiscard]] LightweightString<wchar_t> getName() const;
    // The last component of the name of the file itself, of a link that of the link.
    [[nodiscard]] LightweightString<wchar_t> getLinkFileName() const;

    // --- which file to open

    // OS path of the first proxy, in list order, of at least minHeight lines (a proxy whose name carries no
    // height is taller than any); empty when there is none. It may be offline: its status is refreshed,
    // but does not decide.
    [[nodiscard]] LightweightString<wchar_t> findProxy(unsigned minHeight) const;
    // OS path for format. eProxy: the first proxy. eAuto with a height: the first proxy at least as tall.
    // Where that gave none, and for eHighRes: the high-res file when it is online, otherwise the first
    // proxy. Empty when there is nothing to open.
    [[nodiscard]] LightweightString<wchar_t> findFileForCookie(const DecodeFormat& format) const;

    // Tests what was not tested yet and answers with an eMediaStatus:
    //   eHighRes   status of the high-res file; offline without one
    //   eProxy     online when at least one proxy is; otherwise unknown, never offline
    //   both       offline when there are proxies and none is online; otherwise that of the high-res
    //              file, where having none counts as online
    // Any other mask prints an assertion line and is answered like both, from what its bits tested.
    unsigned updateStatus(unsigned mediaTypes) const;
    // Asks the disk for the size of the high-res file (of the link file itself). A file of any size is
    // online; size 0 prints an assertion line and leaves the status.
    void updateFileSize();

    // --- links

    // Makes name what the high-res link points at, without touching the disk. When another thread began to
    // store in between, that thread's name stands. Of two stores at once, a first reader's among them,
    // either may stay.
    void setLinkedFilename(const LightweightString<wchar_t>& name) const;
    // Writes the link file of the high-res file and then of each proxy; the result is that of the last one.
    bool realiseLinks(bool overwrite);
    // Moves the high-res file to another drive; path, status and linked name stay.
    // REQUIRES (broken ones print an assertion line each): no proxies; destDrive is valid; the file is no
    // link whose target exists.
    void updateLinks(const DriveId& destDrive);

    // --- changes

    // Adds a file of cookie.
    // A proxy that is listed already (same path, drive and height) changes nothing. A new proxy with N
    // audio channels is also told to the cache for the clip's sound cookies of channels 1 to N; channel
    // numbers have 8 bits.
    // A high-res file replaces the one before, but a link never replaces real media. The replaced file
    // becomes a proxy when there are no proxies.
    void addFile(const Cookie& cookie, const MediaFileInfo& file);
    // Appends a proxy unless it is listed already.
    void addProxyFile(const MediaFileInfo& file);
    // Drops file from the entry; the disk is not touched. A high-res file goes only when path and drive
    // are the same.
    void removeFile(const MediaFileInfo& file);
    // Drops every proxy whose physical OS path is physicalName.
    void removeProxyFile(const LightweightString<wchar_t>& physicalName);
    // The proxy that stood at OS path oldName has moved to newName: newName becomes its linked name, its
    // size is that of newName. Its own name stays. Prints an assertion line when there is no such proxy.
    void renameProxyFile(const LightweightString<wchar_t>& oldName,
                         const LightweightString<wchar_t>& newName);

    // --- deletion from disk; results are 1 or a platform error code

    // Deletes the target of a link, when it is a file below the link's own folder, then the media file and
    // its companions (files named after it with "." and more). A target whose folder contains a step
    // upwards ("..") stays, wherever it leads. The result is that of the media file.
    unsigned deleteFile(const MaterialFilename& name);
    // Deletes the files of the given kinds and drops them from the entry; the last failure is the result.
    // Mask 0 prints an assertion line and deletes nothing.
    unsigned deleteFiles(unsigned mediaTypes);

private:
    friend class SystemCache;      // for what it asks of each channel of a shot, without copying records
    friend class SystemCacheScan;  // makes and merges entries of listed files
    using Proxies = std::list<MediaFileInfo>;

    // A record to work on while the entry may change.
    struct Copy
    {
        MediaFileInfo file;
        bool fromProxies;
        std::uint32_t changes;  // of the entry when the copy was made
    };

    // What most clips have none of.
    struct Extras
    {
        MediaFileInfo::Details highRes;
        Proxies proxies;
    };

    // An entry of a high-res file that a scan has just found, and nothing else.
    FsysDirectoryEntry(DriveId drive, const FolderName& folder, std::wstring_view name, std::uint64_t size);
    // As addFile does with the file that listed was made of; listed has no file afterwards.
    void addListed(FsysDirectoryEntry& listed);

    [[nodiscard]] MaterialFilename primaryFilename() const;
    [[nodiscard]] DriveId highResDrive() const;
    [[nodiscard]] bool hasHighResFile() const;
    [[nodiscard]] bool hasProxies() const;

    [[nodiscard]] Copy copyHighRes() const;
    [[nodiscard]] std::vector<Copy> copyProxies() const;
    [[nodiscard]] std::vector<Copy> copyUntestedProxies() const;
    [[nodiscard]] std::optional<Copy> copyProxyOfHeight(unsigned minHeight) const;
    // Takes over status and linked name where the entry has none yet; forgets them when it changed.
    void writeBack(const Copy& copy) const;
    [[nodiscard]] LightweightString<wchar_t> askPhysicalFilename(const Copy& copy, bool resolve) const;
    [[nodiscard]] LightweightString<wchar_t> askLinkedFilename(const Copy& copy) const;

    [[nodiscard]] Copy testHighRes() const;
    [[nodiscard]] unsigned testProxies() const;
    [[nodiscard]] unsigned highResStatus() const;
    [[nodiscard]] bool someProxyIsOnline() const;

    bool insertProxy(const MediaFileInfo& file);
    void replaceHighRes(StoredFile file, const MediaFileInfo::Details& details);
    static void registerSoundChannels(const Cookie& cookie, const MediaFileInfo& proxy);

    // These REQUIRE that the caller holds guard_.
    [[nodiscard]] MediaFileInfo highRes() const;
    void setHighRes(StoredFile file, const MediaFileInfo::Details& details);
    void writeBackHighRes(const MediaFileInfo& copy) const;
    [[nodiscard]] Extras& extras() const;
    [[nodiscard]] bool hasListedProxies() const { return extras_ && !extras_->proxies.empty(); }
    [[nodiscard]] MediaFileInfo* findProxyRecord(const MediaFileInfo& file) const;
    bool appendProxy(const MediaFileInfo& file);

    mutable StoredFile highRes_;
    mutable std::unique_ptr<Extras> extras_;  // made on first use and then kept, for getProxyFiles
    std::uint32_t changes_ = 0;               // of the records; wraps
    mutable ShortGuard guard_;
};
