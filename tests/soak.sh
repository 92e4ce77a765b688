#!/usr/bin/env bash
# Readers, recorders, scans, location changes and listeners at random, on an ext4 disk and in memory.
#   tests/soak.sh [--minutes N | --seconds N] [--seed S] [--network DIR] [--build DIR] [--no-memory]
# --network   a third place, on a network drive
# --build     a build folder that has the tests (default: build/dev)
# Exit status: 0 when nothing was wrong; 77 when this machine or user cannot make the disks.
set -euo pipefail
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$tests/../build/dev
seconds=60
network=
options=()
while [ $# -gt 0 ]; do
    case $1 in
    --minutes) seconds=$(awk "BEGIN { print 60 * $2 }") && shift ;;
    --seconds) seconds=$2 && shift ;;
    --seed) options+=(--seed "$2") && shift ;;
    --network) network=$(mktemp -d "$2/fsys-soak-XXXXXX") && shift ;;
    --build) build=$2 && shift ;;
    --no-memory) options+=(--no-memory) ;;
    *) sed -n '3,6s/^# *//p' "$0" >&2 && exit 2 ;;
    esac
    shift
done
clean() { [ -z "$network" ] || rm -rf "$network"; }
trap clean EXIT

export SOAK=$build/tests/crash/soak
# Each puts its file system at $TMPDIR, the second one inside of the first.
# shellcheck disable=SC2016
"$tests/system/with_file_system.sh" ext4 bash -c '
    export DISK=$TMPDIR HOME=$TMPDIR
    exec "$0" tmpfs bash -c "exec \"\$SOAK\" \"\$@\" \"\$DISK\" \"\$TMPDIR\"" soak "$@"
' "$tests/system/with_file_system.sh" --seconds "$seconds" "${options[@]}" ${network:+"$network"}
