#!/usr/bin/env bash
# Runs a command on a file system that is made for it and goes with it.
#   with_file_system.sh KIND COMMAND [ARGS]
# KIND        ext4, xfs, tmpfs; ext4-4096 (a disk of 4096-byte sectors); small (8 MiB of ext4); small-xfs (the
#             least that it can be), small-tmpfs; quota (16 MiB for a folder of a btrfs); read-only
# The command finds it as $TMPDIR. A mount namespace of its own keeps it from everybody else.
# Exit status: the command's; 77 when this machine or user cannot make such a file system.
set -euo pipefail

skip() { echo "Skipped: $*"; exit 77; }
[ "$(id -u)" -eq 0 ] || skip "making a file system needs root"
if [ -z "${FSYS_OWN_MOUNTS:-}" ]; then
    exec env FSYS_OWN_MOUNTS=1 unshare --mount --propagation private "$0" "$@"
fi

kind=$1 && shift
work=$(mktemp -d)
place=$work/place
loop=
mkdir "$place"
chmod 755 "$work"  # tests that give up root reach it too
clean() {
    while umount "$place" 2>/dev/null; do :; done
    [ -z "$loop" ] || losetup -d "$loop"
    rm -rf "$work"
}
trap clean EXIT

disk() {  # SIZE SECTOR_SIZE
    truncate -s "$1" "$work/image"
    # One at a time: two that look for a free device may find the same one.
    loop=$(flock "${TMPDIR:-/tmp}" losetup --find --show --sector-size "$2" "$work/image") ||
        skip "no loop device with $2-byte sectors"
}
case $kind in
ext4) disk 512M 512; mkfs.ext4 -q "$loop"; mount "$loop" "$place" ;;
ext4-4096) disk 512M 4096; mkfs.ext4 -q "$loop"; mount "$loop" "$place" ;;
xfs) disk 512M 512; mkfs.xfs -q "$loop"; mount "$loop" "$place" ;;
tmpfs) mount -t tmpfs -o size=512M tmpfs "$place" ;;
small) disk 8M 512; mkfs.ext4 -q -O ^has_journal -m 0 "$loop"; mount "$loop" "$place" ;;
small-xfs) disk 300M 512; mkfs.xfs -q "$loop"; mount "$loop" "$place" ;;
small-tmpfs) mount -t tmpfs -o size=24M tmpfs "$place" ;;
quota)
    disk 256M 512
    mkfs.btrfs -q "$loop"
    mount "$loop" "$place"
    btrfs -q subvolume create "$place/folder"
    btrfs -q quota enable "$place" || skip "no quotas of folders"
    btrfs -q qgroup limit 16M "$place/folder"
    mount --bind "$place/folder" "$place"
    ;;
read-only)
    disk 64M 512
    mkfs.ext4 -q "$loop"
    mount "$loop" "$place"
    mkdir -p "$place/location/Material" "$place/location/Sound"
    head -c 100000 /dev/zero >"$place/location/Material/V00000000000000AA00.mov"
    mount -o remount,ro "$place"
    ;;
*) echo "unknown kind $kind" >&2; exit 2 ;;
esac

[ "$kind" = read-only ] || chmod 1777 "$place"
TMPDIR=$place "$@"
