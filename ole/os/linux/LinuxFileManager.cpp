#include "os/linux/LinuxFileManager.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/linux/AtomicSave.h"
#include "os/linux/DebugLine.h"
#include "os/linux/DeleteTree.h"
#include "os/linux/DirectoryListing.h"
#include "os/linux/DurableRename.h"
#include "os/linux/FileServer.h"
#include "os/linux/FileSystemKinds.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/NetworkShares.h"
#include "os/linux/PathOnDisk.h"
#include "os/linux/PathText.h"
#include "os/linux/RemovalAtExit.h"
#include "os/linux/WholeFile.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace os {

namespace {

// An operation's yes or no with what it found, in one piece, because a call that is given up must not
// write to its caller's variables.
struct ListResult
{
    bool listed = false;
    FolderListing files;
};

struct ReadResult
{
    bool read = false;
    std::string contents;
};

ListResult listPattern(const std::string& pattern, Progress& progress)
{
    const SplitPath split = splitPath(pattern);
    ListResult result;
    result.listed = listFolder(split.folder.empty() ? "." : split.folder, wildcardFilter(split.name),
                               result.files, progress);
    return result;
}

Answers answersOf(const Place& place)
{
    if (!place.server)
        return Answers::whole;
    return place.mount && cutsAnswers(place.mount->fsType) ? Answers::lostAsZeros : Answers::cut;
}

void makeItems(const FolderListing& files, std::vector<iFileManager::DirectoryItem>& items)
{
    items.clear();
    items.reserve(files.size());
    for (std::size_t i = 0; i < files.size(); ++i)
        items.push_back({files[i].name, files[i].size});
}

std::string finalPath(const std::string& path)
{
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved))
        return resolved;
    setLastErrno(errno);
    return {};
}

}  // namespace

LinuxFileManager::LinuxFileManager(MountTableReader& mounts, BoundedCalls& calls)
    : mounts_(mounts), calls_(calls)
{}

template <class Result, class Work>
Result LinuxFileManager::atNamed(const Path& path, Result failed, Work work)
{
    const std::string named = pathBytes(path);
    return at(placeOf(named), named, std::move(failed), std::move(work));
}

template <class Result, class Work>
Result LinuxFileManager::at(const Place& place, const std::string& named, Result failed, Work work)
{
    if (named.empty()) {
        setLastErrno(ENOENT);
        return failed;
    }
    if (!place.server) {
        Progress unused;
        return work(named, unused);
    }
    std::function<Result(Progress&)> call = [named, work](Progress& progress) {
        return work(named, progress);
    };
    return calls_.call(laneName(*place.server), std::move(call)).value_or(std::move(failed));
}

template <class Result, class Work>
Result LinuxFileManager::atFound(const Path& path, Result failed, Work work)
{
    return atNamed(path, std::move(failed), [work](const std::string& named, Progress& progress) {
        return work(pathAsFound(named), progress);
    });
}

Place LinuxFileManager::placeOf(const std::string& named)
{
    Place place = places_.find(named);
    if (!place.server && !place.exists && hasForeignSeparators(named))
        place = places_.find(withOwnSeparators(named));
    // An automounter puts the real mount there when somebody enters.
    if (place.mount && place.server == place.mount && place.mount->fsType == "autofs") {
        calls_.call<bool>(laneName(*place.server),
                          [path = place.path](Progress&) { return kindOf(path) != PathKind::none; });
        place = places_.find(place.path);
    }
    return place;
}

bool LinuxFileManager::isOffline(const Path& path)
{
    const std::string named = pathBytes(path);
    const bool offline = guard_.isOffline(named) ||
                         (hasForeignSeparators(named) && guard_.isOffline(withOwnSeparators(named)));
    if (offline)
        setLastErrno(ENODEV);
    return offline;
}

// --- files

Qz::Ptr<iFile> LinuxFileManager::open(const Path& path, unsigned access, unsigned creation, unsigned,
                                      unsigned mode)
{
    const bool writes = (access & accessWrite) != 0 || creation != creationOpen;
    if (writes && isOffline(path))
        return {};
    std::string named = pathBytes(path);
    if (hasForeignSeparators(named))
        named = atFound(path, std::string(), [](const std::string& found, Progress&) { return found; });
    if (named.empty()) {
        if (pathBytes(path).empty())
            setLastErrno(ENOENT);
        return {};
    }
    const Place place = placeOf(named);
    if (!place.server)
        return openLinuxFile(named, access, creation, mode, nullptr);
    const std::shared_ptr<const FileServer> server =
        calls_.serverOf(laneName(*place.server), place.mount && cutsAnswers(place.mount->fsType));
    return server
        ->ask<Qz::Ptr<iFile>>([named, access, creation, mode, server] {
            return openLinuxFile(named, access, creation, mode, server);
        })
        .value_or(Qz::Ptr<iFile>());
}

bool LinuxFileManager::isOpenedDirectly(const Path& path)
{
    return atFound(path, false,
                   [](const std::string& found, Progress&) { return kindOf(found) == PathKind::other; });
}

std::uint64_t LinuxFileManager::getFileSize(const Path& path)
{
    return atFound(path, std::uint64_t{0}, [](const std::string& found, Progress&) {
        std::uint64_t size = 0;
        static_cast<void>(kindOf(found, &size));
        return size;
    });
}

bool LinuxFileManager::fileExists(const Path& path)
{
    return atFound(path, false, [](const std::string& found, Progress&) {
        const PathKind kind = kindOf(found);
        return kind == PathKind::file || kind == PathKind::other;
    });
}

bool LinuxFileManager::deleteFile(const Path& path)
{
    return atFound(path, false,
                   [](const std::string& found, Progress&) { return succeeded(::unlink(found.c_str())); });
}

bool LinuxFileManager::renameFile(const Path& from, const Path& to)
{
    return !isOffline(to) &&
           atNamed(from, false, [newName = pathBytes(to)](const std::string& named, Progress& progress) {
               const std::string found = pathAsFound(named);
               return renameDurably(found, found == named ? newName : withOwnSeparators(newName), progress);
           });
}

bool LinuxFileManager::readWholeFile(const Path& path, std::size_t limit, std::string& contents)
{
    const std::string bytes = pathBytes(path);
    const Place place = placeOf(bytes);
    const Answers answers = answersOf(place);
    ReadResult result =
        at(place, bytes, ReadResult(), [limit, answers](const std::string& named, Progress& progress) {
            ReadResult answer;
            answer.read = readRegularFile(pathAsFound(named), limit, answer.contents, progress, answers);
            return answer;
        });
    contents = std::move(result.contents);
    return result.read;
}

bool LinuxFileManager::replaceFile(const Path& path, const std::string& contents)
{
    return !isOffline(path) && atFound(path, false, [contents](const std::string& found, Progress& progress) {
        return saveAtomically(found, contents, progress);
    });
}

// --- folders

bool LinuxFileManager::directoryExists(const Path& path)
{
    return !isOffline(path) && atFound(path, false, [](const std::string& found, Progress&) {
        return kindOf(found) == PathKind::folder;
    });
}

bool LinuxFileManager::createDirectory(const Path& path)
{
    return !isOffline(path) && atFound(path, false, [](const std::string& found, Progress&) {
        return succeeded(::mkdir(found.c_str(), 0777));
    });
}

bool LinuxFileManager::isWritable(const Path& path)
{
    if (isOffline(path))
        return false;
    const bool writable = atFound(path, false, [](const std::string& found, Progress&) {
        return succeeded(::access(found.c_str(), W_OK));
    });
    if (writable)
        guard_.note(pathBytes(path), placeOf(pathBytes(path)));
    return writable;
}

bool LinuxFileManager::listDirectory(const Path& pattern, std::vector<DirectoryItem>& items)
{
    FolderListing files;
    const bool listed = listFiles(pattern, files);
    makeItems(files, items);
    return listed;
}

bool LinuxFileManager::listFiles(const Path& pattern, FolderListing& files)
{
    ListResult result = atNamed(pattern, ListResult(), [](const std::string& named, Progress& progress) {
        ListResult asNamed = listPattern(named, progress);
        if (!asNamed.files.empty() || !hasForeignSeparators(named))
            return asNamed;
        ListResult translated = listPattern(withOwnSeparators(named), progress);
        return translated.listed ? translated : asNamed;
    });
    files = std::move(result.files);
    return result.listed;
}

bool LinuxFileManager::listFilesWithPrefix(const Path& folder, const Path& prefix,
                                           std::vector<DirectoryItem>& items)
{
    // Only the folder is translated: a name that comes from another folder than the one that was asked
    // for would be joined to the wrong one.
    ListResult result =
        atFound(folder, ListResult(),
                [wanted = pathBytes(prefix),
                 none = prefix.find(L'\0') != Path::npos](const std::string& found, Progress& progress) {
                    ListResult answer;
                    answer.listed = listFolder(found, prefixFilter(wanted), answer.files, progress);
                    if (none)
                        answer.files.clear();
                    return answer;
                });
    makeItems(result.files, items);
    return result.listed;
}

bool LinuxFileManager::deleteTree(const Path& path)
{
    return atFound(path, false, [](const std::string& found, Progress& progress) {
        return os::deleteTree(found, progress);
    });
}

// --- paths

iFileManager::Path LinuxFileManager::resolvePath(const Path& path)
{
    const std::string resolved =
        atFound(path, std::string(), [](const std::string& found, Progress&) { return finalPath(found); });
    return resolved.empty() ? path : widePath(resolved);
}

bool LinuxFileManager::hasDirectoryPart(const Path& path) const { return path.find(L'/') != Path::npos; }

iFileManager::Path LinuxFileManager::getUNCName(const Path& path)
{
    const std::string named = pathBytes(path);
    if (!named.starts_with('/'))
        return {};
    const Place place = placeOf(named);
    std::string name;
    if (place.mount && driveTypeOf(place.mount->fsType) == iDiskDrive::eNetwork)
        name = networkNameOfMount(*place.mount);
    if (!name.empty())
        return widePath(networkNameBelow(name, place.mount->mountPoint, place.path));

    const std::string machine = pathBytes(getMachineName());
    const std::vector<SambaShare> shares = sambaShares();
    name = networkNameInShares(tidyPath(named), machine, shares);
    if (name.empty())
        name = networkNameInShares(place.path, machine, shares);
    return name.empty() ? Path() : widePath(name);
}

// --- this machine

std::vector<iFileManager::ShareInfo>
LinuxFileManager::listShares(const LightweightString<wchar_t>& machineName)
{
    std::vector<ShareInfo> result;
    for (const SambaShare& share : sambaShares())
        result.push_back(
            {widePath(networkNameOfShare(pathBytes(machineName), share)), widePath(share.folder)});
    return result;
}

LightweightString<wchar_t> LinuxFileManager::getMachineName()
{
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof name - 1) != 0)
        return {};
    const std::string_view whole = name;
    return widePath(whole.substr(0, whole.find('.')));
}

Qz::Ptr<iDiskDrive> LinuxFileManager::getDriveForPath(const Path& path)
{
    const std::string named = pathBytes(path);
    if (!named.starts_with('/') || isOffline(path))
        return {};
    const Place place = placeOf(named);
    if (!place.mount)
        return {};
    return Qz::Ptr<iDiskDrive>(new LinuxDisk(*place.mount, diskServices_));
}

std::vector<Qz::Ptr<iDiskDrive>> LinuxFileManager::listDisks(unsigned flag)
{
    std::vector<Qz::Ptr<iDiskDrive>> disks;
    if (flag != listMountedVolumes)
        return disks;
    const auto table = mounts_.current();
    for (const MountEntry& mount : table->entries()) {
        const bool covered = table->mountedAt(mount.mountPoint) != &mount;
        if (!covered && !isPseudoFileSystem(mount.fsType))
            disks.emplace_back(new LinuxDisk(mount, diskServices_));
    }
    return disks;
}

// --- others

void LinuxFileManager::reportError(const Path& path, unsigned code)
{
    debugLine(pathBytes(path) + ": " + errorText(code).str());
}

void LinuxFileManager::registerForRemoval(const Path& path)
{
    const std::string found =
        atFound(path, std::string(), [](const std::string& asFound, Progress&) { return asFound; });
    if (found.empty())
        return;
    const Place place = placeOf(found);
    removeAtExit(found.starts_with('/') ? found : place.path, place.server != nullptr);
}

Qz::Ptr<iAsyncContext> LinuxFileManager::createAsyncContext(void* owner)
{
    return createLinuxAsyncContext(owner);
}

}  // namespace os
