#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "os/Export.h"
#include "os/FolderListing.h"
#include "os/iAsyncContext.h"
#include "os/iDiskDrive.h"
#include "os/iFile.h"

#include <cstdint>
#include <string>
#include <vector>

// iFileManager: files, folders, drives and network names of the platform.
//
// Paths:      operating-system paths, wide. A path that does not exist as named is tried again with
//             backslashes read as separators, because parts of network names may have kept them.
// Threads:    any.
// Errors:     operations that fail set the thread's last error (LastError.h).
// Time:       operations on network and user-space file systems end within 2 seconds, or what the thread's
//             Patience says; one that does not finish fails with ETIMEDOUT and goes on alone. Until it has
//             ended, others on the same mount fail at once, unless they are patient.
class OS_API iFileManager
{
public:
    // Of the operating system, wide.
    using Path = LightweightString<wchar_t>;

    // One regular file of a listing.
    struct DirectoryItem
    {
        LightweightString<wchar_t> name;  // without folder
        std::uint64_t size = 0;           // bytes
    };
    // A folder that this machine exports.
    struct ShareInfo
    {
        LightweightString<wchar_t> uncName;    // two backslashes, machine, backslash, share
        LightweightString<wchar_t> localPath;  // ends with the separator
    };

    virtual ~iFileManager() = default;

    // --- files

    // Opens path; codes in Codes.h. Empty on failure. The file is never truncated.
    virtual Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                                unsigned mode) = 0;
    // True for an existing path that is no regular file, no folder and no link to one: such a path (a
    // pipe, a device) is opened as it is, without asynchronous transfers.
    [[nodiscard]] virtual bool isOpenedDirectly(const Path& path) = 0;
    // Bytes; 0 when there is no such file or it is a folder. Links are followed.
    [[nodiscard]] virtual std::uint64_t getFileSize(const Path& path) = 0;
    // True when path names something that is not a folder. Links are followed.
    [[nodiscard]] virtual bool fileExists(const Path& path) = 0;
    // Removes a file (a link, not what it points at). Refuses folders.
    virtual bool deleteFile(const Path& path) = 0;
    // Gives a file another name, durably: after a crash it has one of the two. Fails with EEXIST when there
    // is something under the new one.
    virtual bool renameFile(const Path& from, const Path& to) = 0;
    // Reads at most limit bytes of a file; contents is empty after a failure. A longer file fails.
    virtual bool readWholeFile(const Path& path, std::size_t limit, std::string& contents) = 0;
    // Replaces a file as a whole: after a crash, a full disk or a failure there is either the old file or
    // the new one. Keeps the permissions of a file that was there.
    virtual bool replaceFile(const Path& path, const std::string& contents) = 0;

    // --- folders

    // True when path names a folder. Links are followed.
    [[nodiscard]] virtual bool directoryExists(const Path& path) = 0;
    // Makes one level. False when it is there already.
    virtual bool createDirectory(const Path& path) = 0;
    // True when the caller may write there; false for read-only mounts and missing paths.
    [[nodiscard]] virtual bool isWritable(const Path& path) = 0;
    // Lists the regular files of a folder (links to them included), sorted by the bytes of their names.
    // pattern is folder, separator and a name in which '*' and '?' are wildcards; "*.*" is every name,
    // also without a dot. A folder that cannot be listed gives false and no items.
    virtual bool listDirectory(const Path& pattern, std::vector<DirectoryItem>& items) = 0;
    // The same with all names in one text: for folders of very many files.
    virtual bool listFiles(const Path& pattern, FolderListing& files) = 0;
    // The same without wildcards: names that begin with prefix, which is taken literally.
    virtual bool listFilesWithPrefix(const Path& folder, const Path& prefix,
                                     std::vector<DirectoryItem>& items) = 0;
    // Removes what path names: a file, or a folder with all it holds. Follows no link and crosses no
    // mount. Refuses the empty path, relative paths, the root and mount points.
    virtual bool deleteTree(const Path& path) = 0;

    // --- paths

    // What stands between the components of a path.
    [[nodiscard]] virtual wchar_t getPathSeparator() const = 0;
    // The path of the file that path finally designates; path itself when that cannot be told.
    [[nodiscard]] virtual Path resolvePath(const Path& path) = 0;
    // True when path has a folder part in this system's form. Answers from the text alone.
    [[nodiscard]] virtual bool hasDirectoryPart(const Path& path) const = 0;
    // Network name of a local path (two backslashes, machine, backslash, share, then the rest with
    // backslashes); empty when the path lies on no network mount and in no exported folder.
    [[nodiscard]] virtual Path getUNCName(const Path& path) = 0;

    // --- this machine

    // What this machine exports; empty when it exports nothing. Never fails.
    [[nodiscard]] virtual std::vector<ShareInfo>
    listShares(const LightweightString<wchar_t>& machineName) = 0;
    // The network name: the host name up to its first dot.
    [[nodiscard]] virtual LightweightString<wchar_t> getMachineName() = 0;
    // Volume that holds path, judged by its nearest existing ancestor, so that a file that is about to be
    // made has a drive too. Empty for empty and relative paths and network names.
    [[nodiscard]] virtual Qz::Ptr<iDiskDrive> getDriveForPath(const Path& path) = 0;
    // Mounted volumes in the order of the mount table, without those that are no storage.
    // REQUIRES: flag is os::listMountedVolumes.
    [[nodiscard]] virtual std::vector<Qz::Ptr<iDiskDrive>> listDisks(unsigned flag) = 0;

    // --- others

    // Notes that something about path could not be done (a link that cannot be read). Debug log only.
    virtual void reportError(const Path& path, unsigned code) = 0;
    // Removes the file at normal exit of the process if it still exists.
    virtual void registerForRemoval(const Path& path) = 0;
    // A context for one asynchronous transfer at a time; owner is what its completion will name.
    virtual Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) = 0;
};
