#!/usr/bin/env bash
# clang-tidy over the libraries and the command, each file by itself. Usage: check-tidy.sh [FILE...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# A build folder that tells how each file is compiled by itself, which those of the sanitizers do not. Of it only the
# precompiled header of the command is built.
build=build/tidy
mkdir -p "$build"
{ cmake --preset tidy && ninja -C "$build" tools/CMakeFiles/fsys_command_objects.dir/cmake_pch.hxx.pch; } \
    >"$build/log" 2>&1 || { tail -n 30 "$build/log"; exit 1; }
if [ $# -eq 0 ]; then
    mapfile -t files < <(find ole tools -name '*.cpp' | sort)
    set -- "${files[@]}"
fi
printf '%s\n' "$@" | xargs -P "$(nproc)" -n 4 clang-tidy-14 -p "$build" --quiet --warnings-as-errors='*' \
    2> >(grep -vE '^[0-9]+ warnings? generated|^Suppressed|^Use -header-filter' >&2)
