// Media locations and the files that lie in them: scans, links, imports, removal.

#include "ScenarioHelpers.h"
#include "Scenarios.h"

#include "fsys/MaterialLink.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/NetLogin.h"

#include <cerrno>
#include <cstring>

#include <list>

namespace {

using fake::Op;
using Pace = FakeStage::Pace;

void prepareClips(Stage& stage)
{
    stage.putBystander("Elsewhere/far.mov", mediaBytes(3000, 5));
    for (unsigned i = 0; i < 6; ++i)
        stage.put(clipFile(i), mediaBytes(2000 + i, i));
    stage.put(clipFile(1, ".proxy.540.mov"), mediaBytes(700, 50));
    stage.put(clipFile(1, ".mov.reapeaks"), "peaks");
    stage.put(clipFile(6), linkTo(stage, "Elsewhere/far.mov"));
    stage.put(clipFile(7), linkTo(stage, "Material/own/target.mov"));
    stage.put("Material/own/target.mov", mediaBytes(900, 9));
    stage.put(clipFile(8, ".mov.partial"), "unfinished");
    stage.put(clipFile(9), "");
    stage.put("Material/readme.txt", "no media");
    registerStage(stage);
}

// --- scan

void scan(Stage& stage)
{
    SystemCache::initialise(true);
    const ScanCounts counts = SystemCache::getScanCounts();
    stage.outcome(std::to_string(counts.files) + " files, " + std::to_string(counts.clips) + " clips");
    DecodeFormat format(eHighRes);
    for (unsigned i = 0; i < 10; ++i) {
        LightweightString<wchar_t> file;
        const bool found = SystemCache::findFileForCookie(clipNumber(i), file, format);
        const std::string name = toUTF8(file).str();
        stage.outcome(found ? name : "none");
        const bool isClip = name == toUTF8(stage.os(clipFile(i))).str();
        const bool isTarget =
            name.find("/far.mov") != std::string::npos || name.find("/target.mov") != std::string::npos;
        stage.check(!found || name.empty() || isClip || isTarget, "the file of another clip");
    }
    SystemCache::updateStatus(clipNumber(1), eHighRes | eProxy);
}

// --- link

void link(Stage& stage)
{
    const auto far = stage.os("Elsewhere/far.mov");
    const auto made = stage.os(clipFile(20));
    // A new link, an old one over again, and media that a link must not take the place of.
    if (!MaterialLink::createLink(made, far, false))
        stage.told("no link");
    if (!MaterialLink::createLink(stage.os(clipFile(7)), far, true))
        stage.told("no new link");
    if (MaterialLink::createLink(stage.os(clipFile(2)), far, true))
        stage.wrong("a link in the place of media");
    stage.check(stage.get(clipFile(2)) == mediaBytes(2002, 2), "media is damaged");
    LightweightString<wchar_t> target;
    const bool isLink = MaterialLink::getLinkedFilename(made, target);
    const bool right = target == far || target == made || target.empty();
    stage.check(right, "a link that leads elsewhere: " + toUTF8(target).str());
    stage.outcome(isLink ? toUTF8(target).str() : "no link");
    const MaterialFilename name(DiskManager::get_drive(0), fromUTF8("/" + clipFile(6)));
    stage.outcome(MaterialLink::linkedFileExists(name) ? "there" : "not there");
    stage.outcomeOf(clipFile(20));
    // Made whole or not at all, or taken for what it is: not a link.
    const auto contents = stage.get(clipFile(20));
    stage.check(!contents || contents->size() != 512 || *contents == linkTo(stage, "Elsewhere/far.mov"),
                "a link with wrong contents");
}

// --- import: a link into the location, told to the index

void importLink(Stage& stage)
{
    const MaterialFilename name(DiskManager::get_drive(0), fromUTF8("/" + clipFile(30)));
    const bool linked = MaterialLink::createLink(name.getOsPath(), stage.os("Elsewhere/far.mov"), false);
    if (!linked)
        stage.told("no link");
    else if (!SystemCache::addFile(clipNumber(30), name, true))
        stage.told("the index did not take it");
    SystemCache::updateStatus(clipNumber(30), eHighRes);
    DecodeFormat format(eHighRes);
    LightweightString<wchar_t> file;
    const bool found = linked && SystemCache::findFileForCookie(clipNumber(30), file, format);
    stage.outcome(found ? toUTF8(file).str() : "none");
    stage.outcomeOf(clipFile(30));
}

// --- remove

void prepareRemoval(Stage& stage)
{
    prepareClips(stage);
    stage.putBystander(clipFile(2), mediaBytes(2002, 2));
    stage.putBystander("Material/owned/target.mov", "not the link's own");
    SystemCache::initialise(true);
}

void removeClips(Stage& stage)
{
    for (const unsigned number : {1U, 6U, 7U}) {
        const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(clipNumber(number));
        if (!entry || entry->deleteFiles(eHighRes | eProxy) != 1)
            stage.told("could not be removed");
    }
    for (const std::string& path : {clipFile(1), clipFile(1, ".proxy.540.mov"), clipFile(1, ".mov.reapeaks"),
                                    clipFile(6), clipFile(7), std::string("Material/own/target.mov")})
        stage.outcomeOf(path);
}

// --- locations

constexpr const char* otherLocations = "/k/first\n/k/second\n";

void prepareProject(Stage& stage)
{
    prepareClips(stage);
    DiskManager::deInit();
    stage.put("project/DefNetDrive.txt", otherLocations);
    stage.put("project/UnmountedDrives.txt", "/u/gone/\n");
    stage.putBystander("project/Preferences.txt", "somebody's");
    stage.putFolder("added");
    DiskManager::init(stage.os("project"), true);
    SystemCache::initialise(true);
}

void checkList(Stage& stage, const std::string& added)
{
    const auto list = stage.get("project/DefNetDrive.txt");
    stage.check(list && list->starts_with(otherLocations), "the list has lost other locations");
    const std::string rest = list ? list->substr(std::min(list->size(), std::strlen(otherLocations))) : "";
    stage.check(rest.empty() || rest == added + "\n", "the list holds something else: " + rest);
    stage.check(stage.get("project/UnmountedDrives.txt") == "/u/gone/\n", "the other list is damaged");
    stage.outcome(rest);
}

DriveId idOf(const LightweightString<wchar_t>& root)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root);
    return drive ? drive->getId() : DriveId('0');
}

void addRenameRemove(Stage& stage)
{
    const auto root = stage.os("added/");
    const std::string line = toUTF8(root).str();
    if (!DiskManager::addMediaLocation(root))
        stage.told("not added");
    checkList(stage, line);
    const DriveId id = idOf(root);
    stage.outcome(id.valid() ? "registered" : "not registered");
    if (id.valid()) {
        if (!DiskManager::prepareVolumeForMedia(id))
            stage.told("not prepared");
        if (DiskManager::renameMediaLocation(id, L"Summer") != 1)
            stage.told("not renamed");
        DiskManager::updateDrives();
        stage.outcome(toUTF8(DiskManager::getMediaLocationUserName(id)).str());
        stage.outcomeOf("added/Material/MediaSpaceInfo.txt");
        const auto info = stage.get("added/Material/MediaSpaceInfo.txt");
        stage.check(!info || *info == "name=Summer\n", "a description that nobody wrote");
        if (DiskManager::renameMediaLocation(id, L"Winter") != 1)
            stage.told("not renamed");
        const auto after = stage.get("added/Material/MediaSpaceInfo.txt");
        stage.check(after == info || (after && *after == "name=Winter\n"),
                    "neither the old name nor the new");
        if (!DiskManager::removeMediaLocation(root))
            stage.told("not removed");
        stage.check(!DiskManager::isVolumePresent(id), "removed and still there");
    }
    checkList(stage, line);
    stage.outcomeOf("added/Material/MediaSpaceInfo.txt");
}

void startWithLocations(Stage& stage)
{
    stage.put("project/DefNetDrive.txt",
              toUTF8(stage.os("added/")).str() + "\n" + toUTF8(stage.os("")).str() + "\n");
    DiskManager::deInit();
    DiskManager::init(stage.os("project"), false);
    SystemCache::initialise(true);
    stage.outcome(idOf(stage.os("added/")).valid() ? "added" : "missing");
    stage.outcome(std::to_string(DiskManager::getMissingMediaLocations().size()) + " missing");
    stage.outcome(std::to_string(SystemCache::getScanCounts().clips) + " clips");
    DiskManager::updateDrives();
    stage.outcome(DiskManager::find_best_disk().valid() ? "room" : "no room");
}

// --- login

void login(Stage& stage)
{
    if (!NetLogin(stage.os("Material")))
        stage.told("no login");
    NetLogout();
    stage.outcome("logged out");
}

}  // namespace

std::vector<Scenario> locationScenarios()
{
    const std::vector<Silence> locationsMayLackFolders = {
        {Op::listDirectory, ENOENT, "a location need not have both folders"}};
    return {
        {"scan", Pace::driven, prepareClips, scan, true, locationsMayLackFolders},
        {"link", Pace::driven, prepareClips, link},
        {"import a link", Pace::driven, prepareClips, importLink},
        {"remove", Pace::driven, prepareRemoval, removeClips},
        {"locations", Pace::driven, prepareProject, addRenameRemove, true, locationsMayLackFolders},
        {"init with locations", Pace::driven, prepareProject, startWithLocations, true,
         locationsMayLackFolders},
        {"login", Pace::driven, prepareClips, login},
    };
}
