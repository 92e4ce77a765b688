#!/usr/bin/env bash
# Installs packages, uses them as their users do, removes them, and looks for what is left behind.
#   unshare --mount package_trial.sh FOLDER CONSUMER COMPILER PACKAGE...
# FOLDER: an empty one. CONSUMER: the folder of the programs that are built with the installed packages. Everything is
# done below an overlay of the machine's root; FOLDER/changes/upper so holds exactly what was changed.
set -euo pipefail
folder=$1 consumer=$2 compiler=$3
shift 3
changes=$folder/changes root=$folder/root
mkdir "$changes" "$root"
mount -t tmpfs tmpfs "$changes"
mkdir "$changes/upper" "$changes/work"
mount -t overlay overlay -o "lowerdir=/,upperdir=$changes/upper,workdir=$changes/work" "$root" ||
    { echo "needs overlay mounts"; exit 77; }
mount --rbind /proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs tmpfs "$root/tmp"
mkdir "$root/tmp/packages" "$root/tmp/home"
cp "$@" "$root/tmp/packages"
cp -r "$consumer" "$root/tmp/consumer"

inside() { env -i HOME=/tmp/home PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"; }
step() { printf '== %s\n' "$*"; }
# Files that were made and are there: no folders, no marks of deleted ones, and nothing of the package manager's own.
made() {
    (cd "$changes/upper" && find . \( -type f -o -type l \) -printf '%P\n') |
        grep -vE '^(var/lib/dpkg/|var/log/|var/cache/(ldconfig|man|debconf|apt)/|etc/ld\.so\.cache$)' || true
}

step install
[ -z "$(made)" ]
inside sh -c 'dpkg --install /tmp/packages/*.deb'
[ -n "$(made)" ]

step use
inside fsys --help >/dev/null
inside fsys location list
# Every library of the command is the installed one.
inside ldd /usr/bin/fsys | tee /dev/stderr | grep -cE 'lib(qz|fsys\w*)\.so\.[0-9]+ => (/usr)?/lib/' | grep -qx 5
inside sh -c "cmake -S /tmp/consumer -B /tmp/built -G Ninja -DCMAKE_CXX_COMPILER=$compiler && cmake --build /tmp/built"
inside mkdir /tmp/media
inside /tmp/built/consumer /tmp/media
inside sh -c "$compiler -std=c++20 /tmp/consumer/cookie.cpp -o /tmp/cookie \$(pkg-config --cflags --libs qz) && /tmp/cookie"

step remove
names=()
for file in "$root"/tmp/packages/*.deb; do names+=("$(dpkg-deb --field "$file" Package)"); done
inside dpkg --purge "${names[@]}"
left=$(made)
[ -z "$left" ] || { printf 'left behind:\n%s\n' "$left"; exit 1; }
folders=$(cd "$changes/upper" && find . -type d -ipath '*fsys*' -printf '%P\n')
[ -z "$folders" ] || { printf 'folders left behind:\n%s\n' "$folders"; exit 1; }
if inside dpkg-query --list '*fsys*' 2>/dev/null | grep -E '^.[^n]' | grep -E '^[a-z]{2} +(lib)?fsys'; then exit 1; fi
