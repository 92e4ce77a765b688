#include "fsys/DiskManager.h"

#include "Qz/StringHelpers.h"
#include "fsys/VolumeList.h"
#include "os/Clock.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <atomic>
#include <limits>
#include <mutex>

constinit VolumeList DiskManager::volumes_;
constinit std::atomic<std::uint32_t> DiskManager::timeOfLastSpaceUpdate_{0};
// Never destroyed, so that the end of the process needs no order among static objects.
DiskManager::Path& DiskManager::projectSpace_ = *new Path;
GenericNotifier<NotifyMsg>& DiskManager::notifier_ = *new GenericNotifier<NotifyMsg>;

namespace {

// The messages of the registry go to whoever asked for this type.
int messageType()
{
    static const unsigned type = NotifyMsgTypeDictionary::instance().intern("DiskManager");
    return static_cast<int>(type);
}

// What look-ups answer with where there is no drive and the interface wants a reference.
MediaDrive& nullDrive()
{
    static MediaDrive& drive = *[] {
        auto* made = new MediaDrive;
        made->addRef();  // lives on when somebody puts it into a Ptr
        return made;
    }();
    return drive;
}

}  // namespace

void DiskManager::init(const Path& projectSpace, bool noDiscovery)
{
    static std::once_flag registered;
    std::call_once(registered, [] { Shutdown::addCallback(DiskManagerShutdown, 201); });
    projectSpace_ = projectSpace;
    timeOfLastSpaceUpdate_ = 0;
    deInit();
    reInit(noDiscovery);
    discardUnmountedDrives();
    addDrivesFromFile(joinPaths(projectSpace, getMediaLocationsFilename()));
    update_drives_and_groups();
}

void DiskManager::deInit() { volumes_.clear(); }

void DiskManagerShutdown(Shutdown::eExitType type)
{
    if (type == Shutdown::eNormalExit)
        DiskManager::deInit();
}

int DiskManager::deleteMaterialVolume(DriveId id)
{
    return volumes_.remove(id) ? QzResult::OK : QzResult::NoSuchDrive;
}

VolumePosition DiskManager::find(DriveId id)
{
    const VolumeList::Snapshot drives = volumes_.take();
    const std::size_t index = drives->indexOf(id);
    return {drives, index == VolumeSnapshot::npos ? drives->size() : index};
}

std::uint32_t DiskManager::find_index_for_drive(const DriveId& id)
{
    const std::size_t index = volumes_.take()->indexOf(id);
    return index == VolumeSnapshot::npos ? std::numeric_limits<std::uint32_t>::max()
                                         : static_cast<std::uint32_t>(index);
}

bool DiskManager::isVolumePresent(DriveId id) { return volumes_.take()->indexOf(id) != VolumeSnapshot::npos; }

bool DiskManager::isMaterialVolume(DriveId id) { return isVolumePresent(id); }

Qz::Ptr<MediaDrive> DiskManager::getVolume(DriveId id)
{
    const VolumePosition place = find(id);
    return place.isEnd() ? Qz::Ptr<MediaDrive>() : place.drive();
}

Qz::Ptr<MediaDrive> DiskManager::getVolume(const Path& path) { return volumes_.take()->driveAt(path); }

MediaDrive& DiskManager::getDriveWithUniqueId(const DriveId& id)
{
    const VolumePosition place = find(id);
    return place.isEnd() ? nullDrive() : *place.drive();
}

DriveId DiskManager::get_drive(unsigned short index)
{
    const VolumeList::Snapshot drives = volumes_.take();
    return index < drives->size() ? drives->at(index)->getId() : DriveId();
}

MediaDrive& DiskManager::getMediaDrive(unsigned short index)
{
    const VolumeList::Snapshot drives = volumes_.take();
    return index < drives->size() ? *drives->at(index) : nullDrive();
}

bool DiskManager::getFirstMaterialVolume(DriveId& id)
{
    const VolumeList::Snapshot drives = volumes_.take();
    if (drives->size() == 0)
        return false;
    id = drives->at(0)->getId();
    return true;
}

bool DiskManager::getNextMaterialVolume(DriveId& id)
{
    const VolumeList::Snapshot drives = volumes_.take();
    const std::size_t index = drives->indexOf(id);
    if (index == VolumeSnapshot::npos || index + 1 >= drives->size())
        return false;
    id = drives->at(index + 1)->getId();
    return true;
}

DriveId DiskManager::getDriveWithName(const Name& name)
{
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        if (drive->getUserName(false) == name)
            return drive->getId();
    return {};
}

DriveId DiskManager::getDriveWithPath(const Path& path)
{
    if (path.empty())
        return {};
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        if (Qz::equalsIgnoringCase(drive->getPath(), path))
            return drive->getId();
    return {};
}

DiskManager::Path DiskManager::getMaterialVolumeName(DriveId id, bool preferLocalShare)
{
    Path name;
    if (const Qz::Ptr<MediaDrive> drive = getVolume(id))
        drive->getLocalName(name, preferLocalShare);
    return name;
}

int DiskManager::getVolInfo(DriveId id, VolumeInfo* info)
{
    const Qz::Ptr<MediaDrive> drive = getVolume(id);
    return drive && drive->getInfo(info) ? QzResult::OK : 0;
}

bool DiskManager::isVolumeAutoDiscovered(DriveId id)
{
    const Qz::Ptr<MediaDrive> drive = getVolume(id);
    return drive && drive->isAutoDiscovered();
}

bool DiskManager::writableVolume(const Path& path) { return OS()->getFileManager()->isWritable(path); }

bool DiskManager::isVolumeWritable(DriveId id)
{
    // Deliberate: the id is taken for a drive letter. Ids of registered places are none, and the answer for
    // them is that of a path that does not exist.
    wchar_t path[] = L"X:\\";
    path[0] = static_cast<wchar_t>(static_cast<unsigned char>(id.asChar()));
    return writableVolume(path);
}

void DiskManager::updateDrives()
{
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        drive->update();
}

void DiskManager::update_drives_and_groups()
{
    if (volumes_.take()->size() == 0)
        return;
    updateDrives();
    constexpr std::uint32_t quietMs = 2000;
    const std::uint32_t timeMs = service_get_msecs();
    if (timeMs - timeOfLastSpaceUpdate_ <= quietMs)  // right across a clock that wraps
        return;
    timeOfLastSpaceUpdate_ = timeMs;  // first, so that a listener may call this again
    issue("disk manager update");
}

void DiskManager::issueMediaOnlineChangeNotification() { issue("MediaOnlineChangeMsg"); }

void DiskManager::informInterestedParties() { issue("MediaLocationsChangeMsg"); }

Qz::Ptr<iObject> DiskManager::addListener(const Qz::Ptr<iCallbackBase<int, NotifyMsg>>& callback)
{
    return notifier_.registerInternal(new CallbackInvoker<NotifyMsg>(callback, messageType()));
}

void DiskManager::issue(const char* text)
{
    notifier_.issueNotification(NotifyMsg(text, nullptr), messageType());
}

LightweightString<wchar_t> getDrive(const LightweightString<wchar_t>& path)
{
    return path.find(L':') == 1 ? path.substr(0, 2) : LightweightString<wchar_t>();
}
