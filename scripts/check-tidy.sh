#!/usr/bin/env bash
# clang-tidy over the libraries and the command. Usage: check-tidy.sh BUILD_FOLDER (configured with clang)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$1
find ole tools -name '*.cpp' | sort | xargs -P "$(nproc)" -n 4 clang-tidy-14 -p "$build" --quiet --warnings-as-errors='*' \
    2> >(grep -vE '^[0-9]+ warnings? generated|^Suppressed|^Use -header-filter' >&2)
