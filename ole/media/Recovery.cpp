#include "media/Recovery.h"

#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"
#include "media/MediaWriter.h"
#include "media/RecordingFile.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "os/Patience.h"
#include "support/Log.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

namespace {

using Path = LightweightString<wchar_t>;

constexpr std::wstring_view ending = partialEnding;

// Finishing flushes what may be a day's shooting.
constexpr unsigned stallLimitMs = 60'000;

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

// What only the open file tells; without it nothing of found changes.
void lookInto(iFile& file, UnfinishedRecording& found)
{
    FILE_INFO info;
    if (!file.getInfo(&info))
        return;
    found.bytes = info.size;
    found.modifiedNs = info.modifiedNs;
    // Without it nobody can tell what is good, and one without a good byte is an offer to remove it.
    if (!file.getWrittenSize(&found.goodBytes)) {
        found.goodBytes = 0;
        return;
    }
    found.inUse = !file.claim();
}

// Nothing when the file has gone since it was listed.
std::optional<UnfinishedRecording> describe(const DriveId& location, const Path& path,
                                            std::uint64_t listedBytes)
{
    UnfinishedRecording found;
    found.location = location;
    found.path = path;
    found.finalPath = finalPathOf(path);
    found.cookie = cookieOf(path);
    // Until the file says otherwise: one that cannot be looked into is neither idle nor empty.
    found.bytes = listedBytes;
    found.inUse = true;
    if (const Qz::Ptr<iFile> file = openRecording(path))
        lookInto(*file, found);
    else if (errnoFromError(lastError()) == ENOENT)
        return std::nullopt;
    return found;
}

void findIn(const DriveId& location, const Path& folder, std::vector<UnfinishedRecording>& found)
{
    std::vector<iFileManager::DirectoryItem> items;
    if (!OS()->getFileManager()->listDirectory(folder + L"*" + partialEnding, items)) {
        const unsigned code = lastError();
        if (const int number = errnoFromError(code); number != ENOENT && number != ENOTDIR)
            Log("fsys: %s could not be searched for unfinished recordings: %s\n", toUTF8(folder).c_str(),
                errorText(code).c_str());
    }
    for (const auto& item : items)
        if (!finalPathOf(folder + item.name).empty())
            if (auto recording = describe(location, folder + item.name, item.size))
                found.push_back(*std::move(recording));
}

MediaError whyNotOpened(unsigned code, const Path& path)
{
    return recordingError(
        errnoFromError(code) == ENOENT ? MediaErrorCode::notFound : MediaErrorCode::writeFailed, code, path);
}

// The file, claimed, or why not.
Qz::Ptr<iFile> takeOver(const Path& path, MediaError* error)
{
    if (finalPathOf(path).empty()) {
        *error = recordingError(MediaErrorCode::invalidArgument, 0, path);
        return {};
    }
    const Qz::Ptr<iFile> file = openRecording(path);
    if (!file) {
        *error = whyNotOpened(lastError(), path);
        return {};
    }
    if (!claimPatiently(*file)) {
        *error = recordingError(MediaErrorCode::unfinished, lastError(), path);
        return {};
    }
    // Its recorder may have given it its name, or another one begun, since it was opened.
    if (const unsigned code = whyNotNamed(*file, path)) {
        *error = whyNotOpened(code, path);
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

MediaError finishFile(const Path& path, const Path& finalPath, bool* named)
{
    const os::Patience patience(stallLimitMs);
    MediaError error;
    const Qz::Ptr<iFile> file = takeOver(path, &error);
    if (!file)
        return error;
    iFileManager* const files = OS()->getFileManager();
    if (files->fileExists(finalPath) || files->directoryExists(finalPath))
        return recordingError(MediaErrorCode::alreadyExists, 0, finalPath);
    if (error = cutToGoodBytes(*file, path); error)
        return error;
    return renameRecording(*file, path, finalPath, named);
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
    const Path finalPath = finalPathOf(recording.path);
    bool named = false;
    const MediaError error = finishFile(recording.path, finalPath, &named);
    if (named)
        tellCache(recording, finalPath);
    return error;
}

MediaError removeUnfinished(const UnfinishedRecording& recording)
{
    MediaError error;
    const Qz::Ptr<iFile> file = takeOver(recording.path, &error);
    if (file && !OS()->getFileManager()->deleteFile(recording.path))
        error = recordingError(MediaErrorCode::writeFailed, lastError(), recording.path);
    return error;
}
