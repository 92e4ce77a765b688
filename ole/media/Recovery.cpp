#include "media/Recovery.h"

#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"
#include "media/MediaWriter.h"
#include "media/RecordingFile.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace {

using Path = LightweightString<wchar_t>;

constexpr std::wstring_view ending = partialEnding;

Qz::Ptr<iFile> openUnfinished(const Path& path)
{
    const Qz::Ptr<iFile> file = OS()->getFileManager()->open(path, os::accessReadWrite, os::creationOpen,
                                                             os::shareAll, os::modePlain);
    return file && file->isOpen() ? file : Qz::Ptr<iFile>();
}

Path fileNameOf(const Path& path)
{
    const Path separator = Path() + OS()->getFileManager()->getPathSeparator();
    const std::size_t last = path.view().rfind(separator.view());
    return last == Path::npos ? path : path.substr(last + 1);
}

Cookie cookieOf(const Path& path)
{
    const Path name = fileNameOf(path);
    return {name.substr(0, name.find(L'.')), true};
}

// Empty for a path that no unfinished recording has.
Path finalPathOf(const Path& path)
{
    return path.endsWith(ending) && fileNameOf(path).size() > ending.size()
               ? path.substr(0, path.size() - ending.size())
               : Path();
}

UnfinishedRecording describe(const DriveId& location, const Path& path)
{
    UnfinishedRecording found;
    found.location = location;
    found.path = path;
    found.finalPath = finalPathOf(path);
    found.cookie = cookieOf(path);
    if (const Qz::Ptr<iFile> file = openUnfinished(path)) {
        FILE_INFO info;
        file->getInfo(&info);
        found.bytes = info.size;
        found.modifiedNs = info.modifiedNs;
        if (!file->getWrittenSize(&found.goodBytes))
            found.goodBytes = 0;
        found.inUse = !file->claim();
    }
    return found;
}

void findIn(const DriveId& location, const Path& folder, std::vector<UnfinishedRecording>& found)
{
    std::vector<iFileManager::DirectoryItem> items;
    OS()->getFileManager()->listDirectory(folder + L"*" + partialEnding, items);
    for (const auto& item : items)
        if (!finalPathOf(folder + item.name).empty())
            found.push_back(describe(location, folder + item.name));
}

// True when path still names the file: its recorder may have given it its name, or another one begun,
// since it was opened.
bool isStillNamed(iFile& file, const Path& path)
{
    const Qz::Ptr<iFile> now = openUnfinished(path);
    FILE_INFO ours;
    FILE_INFO theirs;
    return now && file.getInfo(&ours) && now->getInfo(&theirs) && ours.inode == theirs.inode &&
           ours.device == theirs.device;
}

// The file, claimed, or why not.
Qz::Ptr<iFile> takeOver(const Path& path, MediaError* error)
{
    if (finalPathOf(path).empty()) {
        *error = recordingError(MediaErrorCode::invalidArgument, 0, path);
        return {};
    }
    const Qz::Ptr<iFile> file = openUnfinished(path);
    if (!file) {
        const unsigned code = lastError();
        *error = recordingError(errnoFromError(code) == ENOENT ? MediaErrorCode::notFound
                                                               : MediaErrorCode::writeFailed,
                                code, path);
        return {};
    }
    if (!claimPatiently(*file)) {
        *error = recordingError(MediaErrorCode::unfinished, lastError(), path);
        return {};
    }
    if (!isStillNamed(*file, path)) {
        *error = recordingError(MediaErrorCode::notFound, 0, path);
        return {};
    }
    return file;
}

MediaError cutToGoodBytes(iFile& file, const Path& path)
{
    std::uint64_t good = 0;
    FILE_INFO info;
    if (!file.getInfo(&info) || !file.getWrittenSize(&good))
        return recordingError(MediaErrorCode::readFailed, lastError(), path);
    if (good == 0)
        return recordingError(MediaErrorCode::invalidArgument, 0, path);
    if (good < info.size && !file.setSize(good))
        return recordingError(MediaErrorCode::writeFailed, lastError(), path);
    if (!file.flush())
        return recordingError(MediaErrorCode::flushFailed, lastError(), path);
    return {};
}

// By the name that a scan of the location would give it.
void tellCache(const UnfinishedRecording& recording, const Path& finalPath)
{
    const Cookie cookie = cookieOf(recording.path);
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(recording.location);
    if (!cookie.valid() || !drive || !finalPath.startsWith(drive->getRootLocation().view()))
        return;
    const Path relative = finalPath.substr(drive->getPath().size());
    SystemCache::addFile(cookie, MaterialFilename(recording.location, relative), true);
}

}  // namespace

std::vector<UnfinishedRecording> findUnfinished(const DriveId& location)
{
    std::vector<UnfinishedRecording> found;
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
    if (!drive || drive->getPath().empty())
        return found;
    for (const CookieType type : {CookieTypeVision, CookieTypeSound})
        findIn(location, drive->getLocation(type), found);
    return found;
}

MediaError finishUnfinished(const UnfinishedRecording& recording)
{
    MediaError error;
    const Qz::Ptr<iFile> file = takeOver(recording.path, &error);
    if (!file)
        return error;
    iFileManager* const files = OS()->getFileManager();
    const Path finalPath = finalPathOf(recording.path);
    if (files->fileExists(finalPath) || files->directoryExists(finalPath))
        return recordingError(MediaErrorCode::alreadyExists, 0, finalPath);
    if (error = cutToGoodBytes(*file, recording.path); error)
        return error;
    if (!files->renameFile(recording.path, finalPath)) {
        const unsigned code = lastError();
        return recordingError(errnoFromError(code) == EEXIST ? MediaErrorCode::alreadyExists
                                                             : MediaErrorCode::renameFailed,
                              code, finalPath);
    }
    tellCache(recording, finalPath);
    return {};
}

MediaError removeUnfinished(const UnfinishedRecording& recording)
{
    MediaError error;
    const Qz::Ptr<iFile> file = takeOver(recording.path, &error);
    if (file && !OS()->getFileManager()->deleteFile(recording.path))
        error = recordingError(MediaErrorCode::writeFailed, lastError(), recording.path);
    return error;
}
