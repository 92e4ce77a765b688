#!/usr/bin/env bash
# Sets up what is missing, builds the release preset and runs the fsys command.
#   ./run.sh [ARGS]     fsys ARGS; without ARGS: fsys demo
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$root/scripts/packages.sh"
need_packages "${build_packages[@]}"

log=$root/build/run.log
mkdir -p "$root/build"
build() {
    cmake -S "$root" --preset release "${ccache_options[@]}" && cmake --build "$root/build/release" --target fsys_command
}
# The output of a build that went well is of no interest to somebody who wants to run the command.
if ! (cd "$root" && build) >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "run.sh: the build failed; all of its output is in $log" >&2
    exit 3
fi
[ $# -gt 0 ] || set -- demo
exec "$root/build/release/tools/fsys" "$@"
