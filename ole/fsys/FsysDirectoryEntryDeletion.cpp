// Deleting an entry's files, and what belongs to them, from disk.

#include "fsys/FsysDirectoryEntry.h"

#include "Qz/Assert.h"
#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FileRecords.h"
#include "fsys/MaterialLink.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/Log.h"
#include "support/PathHelpers.h"

#include <mutex>

namespace {

constexpr unsigned success = 1;

bool isNetworkName(const LightweightString<wchar_t>& path) { return path.startsWith(L"\\\\"); }

// A step upwards leads out of the folder although the text says it lies below.
bool stepsUp(const LightweightString<wchar_t>& folder)
{
    return (L"/" + folder).find(L"/../") != LightweightString<wchar_t>::npos;
}

bool liesBelow(const LightweightString<wchar_t>& folder, const LightweightString<wchar_t>& parent)
{
    // Any folder begins with the empty text, but nothing belongs to a link without a folder.
    return !parent.empty() && folder != parent && Qz::startsWithIgnoringCase(folder, parent) &&
           !stepsUp(folder);
}

// What belongs to media and stays behind when that goes: the result of the deletion is the media's own.
void tellLeft(const LightweightString<wchar_t>& path)
{
    Log("fsys: %s could not be deleted: %s\n", toUTF8(path).c_str(), errorText(lastError()).c_str());
}

// Where a folder really is. A symlink in its path may lead out of the folder in which the path begins.
LightweightString<wchar_t> realFolder(const LightweightString<wchar_t>& folder)
{
    const LightweightString<wchar_t> real = OS()->getFileManager()->resolvePath(folder);
    return real.empty() || real.view().ends_with(L'/') ? real : real + L"/";
}

// Media below the link's own folder belongs to the link and goes with it; media elsewhere is left alone.
void deleteOwnTarget(const MaterialFilename& name, const LightweightString<wchar_t>& osPath)
{
    LightweightString<wchar_t> linked;
    if (!MaterialLink::linkedFileExists(name) || !MaterialLink::getLinkedFilename(osPath, linked))
        return;
    const LightweightString<wchar_t> linkedDir = getPath(linked);
    if (isNetworkName(linkedDir) && !isNetworkName(osPath))
        linked = DiskManager::convertUNCtoLocalShare(linked);
    const LightweightString<wchar_t> linkDir = getPath(osPath);
    if (!liesBelow(linkedDir, linkDir))
        return;
    if (!liesBelow(realFolder(getPath(linked)), realFolder(linkDir)))
        Log("fsys: %s stays, for its path leads out of the folder of its link\n", toUTF8(linked).c_str());
    else if (!deleteDirectory(linked))
        tellLeft(linked);
}

// Index, peak and partial files carry the media file's whole name.
void deleteCompanions(const LightweightString<wchar_t>& osPath)
{
    const LightweightString<wchar_t> folder = getPath(osPath);
    const LightweightString<wchar_t> fileName = stripPath(osPath);
    if (fileName.empty())  // otherwise all hidden files of the folder would go
        return;
    std::vector<iFileManager::DirectoryItem> companions;
    iFileManager* const files = OS()->getFileManager();
    if (!files->listFilesWithPrefix(folder, fileName + L".", companions))
        tellLeft(osPath + L".*");
    for (const iFileManager::DirectoryItem& companion : companions)
        if (!files->deleteFile(folder + companion.name))
            tellLeft(folder + companion.name);
}

}  // namespace

unsigned FsysDirectoryEntry::deleteFile(const MaterialFilename& name)
{
    const LightweightString<wchar_t> osPath = name.getOsPath();
    deleteOwnTarget(name, osPath);
    const unsigned result = OS()->getFileManager()->deleteFile(osPath) ? success : lastError();
    deleteCompanions(osPath);  // deliberate: also when the media file itself could not be deleted
    return result;
}

unsigned FsysDirectoryEntry::deleteFiles(unsigned mediaTypes)
{
    if (!Qz::verify(mediaTypes != 0, "mediaTypes != 0", "ole/fsys/FsysDirectoryEntry line 323"))
        return success;

    unsigned result = success;
    const auto deleteOne = [&](const MediaFileInfo& file) {
        const unsigned deleted = deleteFile(file.getMaterialFilename());
        if (deleted != success)
            result = deleted;
    };
    if ((mediaTypes & eProxy) != 0) {
        for (const MediaFileInfo& proxy : copyProxyFiles())
            deleteOne(proxy);
        const std::lock_guard hold(guard_);
        if (extras_)
            extras_->proxies.clear();
        ++changes_;
    }
    if ((mediaTypes & eHighRes) != 0) {
        if (const MediaFileInfo file = getHighResFile(); FileRecords::isPresent(file))
            deleteOne(file);
        const std::lock_guard hold(guard_);
        setHighRes(StoredFile(), MediaFileInfo::Details());
        ++changes_;
    }
    return result;
}
