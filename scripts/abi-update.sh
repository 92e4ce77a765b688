#!/usr/bin/env bash
# Records the binary interfaces of the built libraries in abi/, with which the tests Abi.* compare later builds.
#   scripts/abi-update.sh [--into FOLDER] [BUILD]     BUILD: a build folder of the preset dev, build/dev unless told
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
into=$root/abi
if [ "${1:-}" = --into ]; then into=$2 && shift 2; fi
build=${1:-$root/build/dev}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch" --component development >"$scratch/log"
mkdir -p "$into"
for library in "$build"/ole/lib*.so; do
    name=$(basename "$library" .so)
    # What programs use of the platform are interfaces alone.
    kind=$([ "$name" != libfsysos ] || echo --interfaces)
    "$root/scripts/abi-dump.sh" "$library" "$scratch/include/fsys" "$into/$name.abi" $kind
done
