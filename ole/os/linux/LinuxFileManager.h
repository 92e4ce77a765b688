#pragma once

#include "os/iFileManager.h"
#include "os/linux/BoundedCalls.h"
#include "os/linux/LinuxDisk.h"
#include "os/linux/MountTableReader.h"
#include "os/linux/PlaceGuard.h"
#include "os/linux/Places.h"

#include <functional>
#include <string>

namespace os {

// LinuxFileManager: the file manager of the real system (contract: iFileManager).
//
// Operations go straight to the kernel on file systems of this machine, and through BoundedCalls where a
// server may hang. A place whose mount has gone (PlaceGuard) has no drive, does not exist, and refuses
// with ENODEV whatever would write there.
//
// Ownership: borrows mounts and calls, which outlive it.
class LinuxFileManager final : public iFileManager
{
public:
    LinuxFileManager(MountTableReader& mounts, BoundedCalls& calls);

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override;
    [[nodiscard]] bool isOpenedDirectly(const Path& path) override;
    [[nodiscard]] std::uint64_t getFileSize(const Path& path) override;
    [[nodiscard]] bool fileExists(const Path& path) override;
    bool deleteFile(const Path& path) override;
    bool renameFile(const Path& from, const Path& to) override;
    bool readWholeFile(const Path& path, std::size_t limit, std::string& contents) override;
    bool replaceFile(const Path& path, const std::string& contents) override;

    [[nodiscard]] bool directoryExists(const Path& path) override;
    bool createDirectory(const Path& path) override;
    [[nodiscard]] bool isWritable(const Path& path) override;
    bool listDirectory(const Path& pattern, std::vector<DirectoryItem>& items) override;
    bool listFiles(const Path& pattern, FolderListing& files) override;
    bool listFilesWithPrefix(const Path& folder, const Path& prefix,
                             std::vector<DirectoryItem>& items) override;
    bool deleteTree(const Path& path) override;

    [[nodiscard]] wchar_t getPathSeparator() const override { return L'/'; }
    [[nodiscard]] Path resolvePath(const Path& path) override;
    [[nodiscard]] bool hasDirectoryPart(const Path& path) const override;
    [[nodiscard]] Path getUNCName(const Path& path) override;

    [[nodiscard]] std::vector<ShareInfo> listShares(const LightweightString<wchar_t>& machineName) override;
    [[nodiscard]] LightweightString<wchar_t> getMachineName() override;
    [[nodiscard]] Qz::Ptr<iDiskDrive> getDriveForPath(const Path& path) override;
    [[nodiscard]] std::vector<Qz::Ptr<iDiskDrive>> listDisks(unsigned flag) override;

    void reportError(const Path& path, unsigned code) override;
    void registerForRemoval(const Path& path) override;
    Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) override;

private:
    // Runs work(bytes of path) where it may run; failed when it was given up or path is none. work
    // copies what it uses, for it may outlive this call.
    template <class Result, class Work>
    Result atNamed(const Path& path, Result failed, Work work);
    // The same for who knows the place of these bytes already.
    template <class Result, class Work>
    Result at(const Place& place, const std::string& named, Result failed, Work work);
    // As atNamed with the path as it is found on disk: as named, or with backslashes translated.
    template <class Result, class Work>
    Result atFound(const Path& path, Result failed, Work work);

    [[nodiscard]] Place placeOf(const std::string& named);
    // True, with ENODEV set, when the mount of a noted place has gone.
    [[nodiscard]] bool isOffline(const Path& path);

    MountTableReader& mounts_;
    BoundedCalls& calls_;
    Places places_{mounts_};
    PlaceGuard guard_{places_};
    SpaceMemory space_;
    LinuxDisk::Services diskServices_{mounts_, calls_, space_, "/sys"};
};

}  // namespace os
