#include "fsys/MediaDrive.h"

#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaFolders.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <limits>

namespace {

constexpr double bytesPerMB = 1024.0 * 1024.0;

// Ids that stand for no particular drive; nobody can tell their space.
bool isReserved(const DriveId& id) { return id == DriveId('*') || id == DriveId('?'); }

std::uint64_t bytesOf(double megabytes)
{
    const double bytes = megabytes * bytesPerMB;
    if (!(bytes > 0.0))  // selection may have handed out more than there was
        return 0;
    constexpr double tooMany = 18446744073709551616.0;  // 2^64
    return bytes < tooMany ? static_cast<std::uint64_t>(bytes) : std::numeric_limits<std::uint64_t>::max();
}

double megabytesOf(std::uint64_t bytes) { return static_cast<double>(bytes >> 20); }

// Megabytes of every drive that are never recorded to; set at the first question.
int recordingReserveMB()
{
    constexpr int unset = -1;
    constexpr int standard = 2;
    static std::atomic<int> reserve{unset};
    int expected = unset;
    reserve.compare_exchange_strong(expected, standard, std::memory_order_relaxed);
    return reserve.load(std::memory_order_relaxed);
}

Qz::Ptr<iDiskDrive> volumeOf(const MediaDrive::Path& path)
{
    return OS()->getFileManager()->getDriveForPath(path);
}

}  // namespace

MediaDrive::MediaDrive() = default;

MediaDrive::MediaDrive(const DriveId& id, const LightweightString<wchar_t>& name) : id_(id), name_(name)
{
    update();
}

MediaDrive::MediaDrive(const DriveId& id, const Path& path, iDiskDrive::eType type)
    : id_(id), type_(type), sectorSize_(512)
{
    const Path local = fixForeignOSFileName(path);
    uncName_ = OS()->getFileManager()->getUNCName(local);
    if (!local.empty())
        path_ = local;
    // One separator goes, no more; so the root of the file system becomes the empty path.
    if (path_.endsWith(mediaFolders::separator()))
        path_ = path_.view().substr(0, path_.size() - 1);
    setSectorSize();
    if (type_ == iDiskDrive::eNetwork)
        localShare_ = DiskManager::convertUNCtoLocalShare(path_);
    if (!path_.empty())
        rootLocation_ = mediaFolders::withSeparator(path_);
}

MediaDrive::MediaDrive(const MediaDrive& other)
    : Qz::InternalRefCount(),
      iObject(),
      id_(other.id_),
      name_(other.getName()),
      spaceMB_(other.getSpaceMB()),
      capacityMB_(other.getCapacityMB())
{}

MediaDrive::~MediaDrive() = default;

LightweightString<wchar_t> MediaDrive::getName() const
{
    const std::lock_guard<std::mutex> hold(nameGuard_);
    return name_;
}

void MediaDrive::setName(const LightweightString<wchar_t>& name)
{
    const std::lock_guard<std::mutex> hold(nameGuard_);
    name_ = name;
}

bool MediaDrive::is_unnamed() const { return getName().empty(); }

bool MediaDrive::setSectorSize()
{
    const Qz::Ptr<iDiskDrive> volume = volumeOf(path_);
    if (!volume)
        return false;
    const std::uint32_t size = volume->getSectorSize();
    sectorSize_.store(size == 0 ? 512 : size, std::memory_order_relaxed);
    return true;
}

LightweightString<wchar_t> MediaDrive::getUserName(bool) const
{
    const LightweightString<wchar_t> name = getName();
    return name.empty() ? DiskManager::getMaterialVolumeName(id_, false) : name;
}

bool MediaDrive::has_name(const LightweightString<wchar_t>& name) const { return name == getUserName(true); }

void MediaDrive::getLocalName(Path& name, bool preferLocalShare) const
{
    name = preferLocalShare && !localShare_.empty() ? localShare_ : path_;
}

void MediaDrive::update() const
{
    if (isReserved(id_))
        return;
    VolumeInfo info;  // all zero, which is what a drive without a volume reports
    DiskManager::getVolInfo(id_, &info);
    spaceMB_.store(megabytesOf(info.freeBytes), std::memory_order_relaxed);
    capacityMB_.store(megabytesOf(info.totalBytes), std::memory_order_relaxed);
}

std::uint64_t MediaDrive::getSpaceBytes() const { return bytesOf(getSpaceMB()); }

std::uint64_t MediaDrive::getCapacityBytes() const { return bytesOf(getCapacityMB()); }

double MediaDrive::getSpaceForRecording() const
{
    update();
    return getSpaceMB() - recordingReserveMB();
}

void MediaDrive::reserveSpace(double megabytes) { spaceMB_.fetch_sub(megabytes, std::memory_order_relaxed); }

bool MediaDrive::getInfo(VolumeInfo* info) const
{
    info->isLocal = type_ == iDiskDrive::eLocal;
    info->slow = isSlow();
    const Qz::Ptr<iDiskDrive> volume = volumeOf(path_);
    if (!volume)
        return false;
    info->freeBytes = volume->getFreeBytes();
    info->totalBytes = volume->getTotalBytes();
    return true;
}

MediaDrive::Path MediaDrive::getFolder(CookieType type) { return mediaFolders::nameOf(type); }

MediaDrive::Path MediaDrive::getFolder(const Cookie& cookie) { return getFolder(cookie.getType()); }

MediaDrive::Path MediaDrive::getLocation(CookieType type) const
{
    const Path root = DiskManager::getMaterialVolumeName(id_, false);
    if (root.empty())
        return {};
    return mediaFolders::withSeparator(mediaFolders::withSeparator(root) + getFolder(type));
}

MediaDrive::Path MediaDrive::getLocation(const Cookie& cookie,
                                         const LightweightString<wchar_t>& extension) const
{
    const Path folder = getLocation(cookie.getType());
    if (folder.empty())
        return {};
    // Deliberate: the dot stands there even before an empty extension.
    return folder + cookie.asWString() + L'.' + extension;
}

MediaDrive::Path MediaDrive::getFsysLocation(CookieType type)
{
    const Path folder = getFolder(type);
    return folder.empty() ? Path() : mediaFolders::withSeparator(mediaFolders::separator() + folder);
}

MaterialFilename MediaDrive::getFsysLocation(const Cookie& cookie,
                                             const LightweightString<wchar_t>& extension) const
{
    const Path folder = getFsysLocation(cookie.getType());
    if (folder.empty())
        return {id_, Path()};
    return {id_, folder + cookie.asWString() + L'.' + extension};
}

bool MediaDrive::prepareForMedia() const
{
    return DiskManager::isVolumePreparedForMedia(id_) || DiskManager::prepareVolumeForMedia(id_);
}
