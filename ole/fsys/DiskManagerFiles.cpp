// DiskManager: the files that describe media locations, and the operations that change them.

#include "Qz/Assert.h"
#include "Qz/AttribValuePair.h"
#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaFolders.h"
#include "fsys/SystemCache.h"
#include "fsys/VolumeList.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/Log.h"
#include "support/PathHelpers.h"
#include "support/TextFile.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

// Never destroyed, so that the end of the process needs no order among static objects.
Vector<DiskManager::Path>& DiskManager::missingMediaLocations_ = *new Vector<Path>;

namespace {

using Path = DiskManager::Path;

constexpr int endOfLineLF = 1;
constexpr char nameKey[] = "name";
constexpr char nameSeparator = '=';

Path unmountedDrivesFile(const Path& projectSpace) { return joinPaths(projectSpace, L"UnmountedDrives.txt"); }

Path userLocationsFile(const Path& projectSpace) { return joinPaths(projectSpace, L"DefNetDrive.txt"); }

// Nobody hears of a failure from the operations that change these files, so the log does.
void saveLines(const TextFile& lines, const Path& file)
{
    if (!lines.save(endOfLineLF))
        Log("fsys: %s could not be saved: %s\n", toUTF8(file).c_str(), errorText(lastError()).c_str());
}

// A path with a line break would come back from a list as several others.
bool fitsOneLine(const Path& path) { return path.find(L'\n') == Path::npos && !path.view().ends_with(L'\r'); }

bool appendLineToFile(const Path& file, const Path& text)
{
    if (!fitsOneLine(text)) {
        LogBoth("DiskManager: a path with a line break cannot be listed: %s\n", toUTF8(text).c_str());
        return false;
    }
    TextFile lines(file, true);
    lines.appendLine(toUTF8(text));
    saveLines(lines, file);
    return true;
}

// Takes the lines out that are path. Deliberate: the walk moves on by one after a removal too, so of two
// such lines next to each other the second stays, and goes with the next removal.
void removeLinesFromFile(const Path& file, const Path& path)
{
    TextFile lines(file, true);
    const unsigned count = lines.getLineCount();
    for (unsigned i = 0; i < count; ++i)
        if (Qz::equalsIgnoringCase(fromUTF8(lines.getLine(i)), path)) {
            lines.removeLine(i);
            saveLines(lines, file);
        }
}

void replaceUnmountedDrives(const Path& file, const Vector<Path>& drives)
{
    if (drives.empty()) {
        if (!OS()->getFileManager()->deleteFile(file))
            Log("fsys: %s could not be deleted: %s\n", toUTF8(file).c_str(), errorText(lastError()).c_str());
        return;
    }
    TextFile lines(file, false);
    for (const Path& drive : drives)
        lines.appendLine(toUTF8(drive));
    saveLines(lines, file);
}

// A list may have been written with every backslash doubled. Network names begin with two and stay.
Path withSingleBackslashes(const Path& text)
{
    constexpr std::wstring_view doubled = L"\\\\";
    if (text.startsWith(doubled))
        return text;
    std::wstring result = text.str();
    for (std::size_t at = result.find(doubled); at != std::wstring::npos; at = result.find(doubled, at + 1))
        result.erase(at, 1);
    return result;
}

void reportMissingLocation(const NarrowString& line)
{
    char text[4136];
    std::snprintf(text, sizeof text, "** Can't add material drive '%s'\n", line.c_str());
    LogBoth("%s", text);
}

Path mediaFolderOf(DriveId id, CookieType type)
{
    return MaterialFilename(id, mediaFolders::separator() + mediaFolders::nameOf(type)).getOsPath();
}

bool makeMediaFolder(const Path& folder)
{
    iFileManager* const files = OS()->getFileManager();
    if (files->directoryExists(folder) || files->createDirectory(folder))
        return true;
    LogBoth("DiskManager::prepareVolumeForMedia : Failed to create %s\n", toUTF8(folder).c_str());
    Qz::assertionFailed("success", "ole/fsys/DiskManager line 873");
    return false;
}

// Signed: ids from 0x80 on are below every letter.
bool isUnmountable(DriveId id) { return static_cast<signed char>(id.asChar()) > 'Z'; }

struct CloseFile
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The list that unmountDrives leaves behind; made when the first drive goes into it.
class UnmountList
{
public:
    explicit UnmountList(const char* name) : name_(name) {}

    void add(const Path& root)
    {
        if (name_)
            file_.reset(std::fopen(std::exchange(name_, nullptr), "w"));
        if (file_)
            std::fprintf(file_.get(), "%s\n", toUTF8(root).c_str());
    }

private:
    const char* name_;  // null once it has been opened
    std::unique_ptr<std::FILE, CloseFile> file_;
};

}  // namespace

DiskManager::Path DiskManager::getInfoFileNameFor(DriveId id)
{
    const Path separator = mediaFolders::separator();
    return getMaterialVolumeName(id, false) + separator + mediaFolders::nameOf(CookieTypeVision) + separator +
           L"MediaSpaceInfo.txt";
}

DiskManager::Name DiskManager::getMediaLocationUserName(DriveId id)
{
    const TextFile file(getInfoFileNameFor(id), true);
    if (file.getLineCount() == 0)
        return {};
    const Qz::AttribValuePair line(file.getLine(0), nameSeparator);
    if (line.isValid() && Qz::equalsIgnoringCase(line.getName(), nameKey))
        return fromUTF8(line.getValue());
    Log("Disk Manager - MediaSpaceInfo.txt contents corrupt\n");
    Qz::assertionFailed("false", "ole/fsys/DiskManager line 185");
    return {};
}

void DiskManager::setMediaLocationUserName(DriveId id, Name name)
{
    if (const Qz::Ptr<MediaDrive> drive = getVolume(id))
        drive->setName(name);
    else
        Qz::assertionFailed("false", "ole/fsys/DiskManager line 200");
}

bool DiskManager::saveDriveInfo(const MediaDrive& drive)
{
    VolumeInfo info;
    getVolInfo(drive.getId(), &info);
    if (info.freeBytes == 0) {
        LogBoth("Disk Manager : Insufficient space for MediaSpaceInfo.txt file on drive '%c'.\n",
                drive.getId().asChar());
        return false;
    }
    const Path name = getInfoFileNameFor(drive.getId());
    TextFile file(name, false);
    file.appendLine(Qz::AttribValuePair(nameKey, toUTF8(drive.getName()), nameSeparator).asString());
    saveLines(file, name);
    return true;
}

int DiskManager::renameMediaLocation(const DriveId& id, const Name& name)
{
    int saved = 0;
    const VolumeList::Snapshot drives = volumes_.take();  // listeners may change the registry meanwhile
    for (const auto& drive : *drives) {
        if (drive->getId() != id)
            continue;
        drive->setName(name);
        saved = saveDriveInfo(*drive);
        informInterestedParties();
    }
    return saved;
}

bool DiskManager::isVolumePreparedForMedia(DriveId id)
{
    iFileManager* const files = OS()->getFileManager();
    return files->directoryExists(mediaFolderOf(id, CookieTypeVision)) &&
           files->directoryExists(mediaFolderOf(id, CookieTypeSound));
}

bool DiskManager::prepareVolumeForMedia(DriveId id)
{
    return isVolumePreparedForMedia(id) || (makeMediaFolder(mediaFolderOf(id, CookieTypeVision)) &&
                                            makeMediaFolder(mediaFolderOf(id, CookieTypeSound)));
}

int DiskManager::addDrivesFromFile(const Path& file)
{
    missingMediaLocations_.clear();
    const TextFile lines(file, true);
    for (unsigned i = 0; i < lines.getLineCount(); ++i) {
        const NarrowString line = lines.getLine(i);
        const Path path = withSingleBackslashes(fromUTF8(line));
        if (getVolume(path) || addDriveForMediaLocation(path, false))
            continue;
        reportMissingLocation(line);
        missingMediaLocations_.add(path);
    }
    informInterestedParties();
    return 1;
}

Vector<DiskManager::Path> DiskManager::getMissingMediaLocations() { return missingMediaLocations_; }

bool DiskManager::addMediaLocation(const Path& path)
{
    if (driveAtLocation(path))
        return false;
    Vector<Path> unmounted = getUnmountedDrives();
    // A discovered drive that the user had removed is a discovered drive again.
    const bool comesBack = unmounted.removeItem(path);
    if (comesBack)
        replaceUnmountedDrives(unmountedDrivesFile(projectSpace_), unmounted);
    else if (!appendLineToFile(userLocationsFile(projectSpace_), path))
        return false;
    // Deliberate: a location that cannot be added now stays listed, and the next init tries again.
    addDriveForMediaLocation(path, comesBack);
    informInterestedParties();
    return true;
}

bool DiskManager::removeMediaLocation(const Path& path)
{
    const Qz::Ptr<MediaDrive> drive = driveAtLocation(path);
    if (!drive)
        return false;
    if (drive->isAutoDiscovered())
        appendLineToFile(unmountedDrivesFile(projectSpace_), path);
    else
        removeLinesFromFile(userLocationsFile(projectSpace_), path);
    SystemCache::removeMediaLocation(drive->getId());
    deleteMaterialVolume(drive->getId());
    informInterestedParties();
    return true;
}

Qz::Ptr<MediaDrive> DiskManager::driveAtLocation(const Path& path)
{
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        if (Qz::equalsIgnoringCase(drive->getRootLocation(), path))
            return drive;
    return {};
}

Vector<DiskManager::Path> DiskManager::getUnmountedDrives()
{
    const TextFile lines(unmountedDrivesFile(projectSpace_), true);
    Vector<Path> drives;
    for (unsigned i = 0; i < lines.getLineCount(); ++i)
        drives.add(fromUTF8(lines.getLine(i)));
    return drives;
}

void DiskManager::discardUnmountedDrives()
{
    for (const Path& root : getUnmountedDrives())
        discardDriveAt(root);
}

void DiskManager::discardDriveAt(const Path& root)
{
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        if (mediaFolders::withSeparator(drive->getPath()) == root) {
            deleteMaterialVolume(drive->getId());
            return;
        }
}

bool DiskManager::unmountDrives(const char* listFile)
{
    UnmountList list(listFile);
    bool any = false;
    DriveId id;
    for (bool more = getFirstMaterialVolume(id); more;) {
        VolumeInfo info;
        Qz::verify(getVolInfo(id, &info) == QzResult::OK, "ok == QzResult::OK",
                   "ole/fsys/DiskManager line 347");
        std::optional<DriveId> leaving;
        if (isUnmountable(id)) {
            list.add(getMaterialVolumeName(id, false));
            informInterestedParties();
            leaving = id;
            any = true;
        }
        // The drive goes after the step to the next one, which starts from it.
        more = getNextMaterialVolume(id);
        if (leaving)
            deleteMaterialVolume(*leaving);
    }
    return any;
}

DiskManager::Name DiskManager::getSaveName(const Name& name)
{
    return getDriveWithName(name).valid() ? name : Name();
}
