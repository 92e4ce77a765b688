#include "os/linux/FileSystemKinds.h"

#include "os/linux/PathText.h"

#include <algorithm>
#include <array>

namespace os {

namespace {

using namespace std::string_view_literals;

constexpr std::array networkTypes{
    "nfs"sv,
    "nfs4"sv,
    "cifs"sv,
    "smb3"sv,
    "smbfs"sv,
    "smb2"sv,
    "afs"sv,
    "ceph"sv,
    "glusterfs"sv,
    "lustre"sv,
    "beegfs"sv,
    "9p"sv,
    "davfs"sv,
    "davfs2"sv,
    "ncpfs"sv,
    "coda"sv,
    "pvfs2"sv,
    "fuse.sshfs"sv,
    "fuse.glusterfs"sv,
    "fuse.davfs"sv,
    "fuse.davfs2"sv,
    "fuse.ceph"sv,
    "fuse.ceph-fuse"sv,
    "fuse.curlftpfs"sv,
    "fuse.rclone"sv,
    "fuse.s3fs"sv,
    "fuse.smbnetfs"sv,
    "fuse.gcsfuse"sv,
    "fuse.goofys"sv,
    "fuse.juicefs"sv,
};

constexpr std::array pseudoTypes{
    "proc"sv,       "sysfs"sv,      "devtmpfs"sv,    "devpts"sv,          "cgroup"sv,      "cgroup2"sv,
    "cpuset"sv,     "pstore"sv,     "bpf"sv,         "tracefs"sv,         "debugfs"sv,     "securityfs"sv,
    "configfs"sv,   "fusectl"sv,    "hugetlbfs"sv,   "mqueue"sv,          "binfmt_misc"sv, "autofs"sv,
    "rpc_pipefs"sv, "nfsd"sv,       "nsfs"sv,        "efivarfs"sv,        "selinuxfs"sv,   "binder"sv,
    "resctrl"sv,    "fuse.lxcfs"sv, "fuse.portal"sv, "fuse.gvfsd-fuse"sv,
};

constexpr std::array systemPoints{"/boot"sv, "/usr"sv, "/var"sv, "/proc"sv, "/sys"sv, "/dev"sv, "/run"sv};

template <class Names>
bool contains(const Names& names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

iDiskDrive::eType driveTypeOf(std::string_view fsType)
{
    if (contains(networkTypes, fsType))
        return iDiskDrive::eNetwork;
    return fsType == "iso9660" || fsType == "udf" ? iDiskDrive::eOptical : iDiskDrive::eLocal;
}

bool isPseudoFileSystem(std::string_view fsType) { return contains(pseudoTypes, fsType); }

bool mayHang(std::string_view fsType)
{
    // Entering an automounter's folder waits for the mount that it starts.
    return fsType == "fuse" || fsType == "fuseblk" || fsType.starts_with("fuse.") || fsType == "autofs" ||
           driveTypeOf(fsType) == iDiskDrive::eNetwork;
}

bool cutsAnswers(std::string_view fsType)
{
    // No more than those that were seen to take unbuffered reads of any position and length: clusters refuse
    // some, and fail others.
    return fsType == "fuse.sshfs";
}

bool isSystemMountPoint(std::string_view mountPoint)
{
    if (mountPoint == "/")
        return true;
    if (isAtOrBelow(mountPoint, "/run/media"))  // where desktops mount removable disks
        return false;
    return std::any_of(systemPoints.begin(), systemPoints.end(),
                       [&](std::string_view point) { return isAtOrBelow(mountPoint, point); });
}

}  // namespace os
