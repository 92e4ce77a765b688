#!/usr/bin/env bash
# All that there is to try: ./test.sh, and in full what it runs a share of. Takes up to two hours.
#   tests/full.sh [--without-test-sh]
# Prints what each step says of itself, and at the end what failed.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
failed=()

step() {  # NAME COMMAND...
    local name=$1 && shift
    printf '\n== %s\n' "$name"
    "$@" || failed+=("$name")
}

if [ "${1:-}" != --without-test-sh ]; then
    step "test.sh" ./test.sh
fi
export HOME=$root/build/dev/home
faults=build/dev/tests/faults/fault_tests
step "a fault at every call" env FSYS_FAULTS=all "$faults" --gtest_brief=1 --gtest_filter='*FaultSweep*'
step "100,000 schedules" env FSYS_SEEDS=100000 FSYS_FIRST_SEED="${FSYS_FIRST_SEED:-$RANDOM}" "$faults" --gtest_brief=1 \
    --gtest_filter='Schedule.*'
step "a folder of a million files" env FSYS_TEST_FOLDER_FILES=1000000 build/dev/tests/fsys/fsys_tests --gtest_brief=1 \
    --gtest_filter=HostileFolders.ALargeFolderIsScannedWhole
step "memory" tests/memcheck.sh
step "servers" ctest --preset dev -L network -C full
step "fuzz targets, 5 minutes each" fuzz/run.sh --seconds 300
step "crashes, lost power, bad disks, 20 minutes of work" tests/crash/full.sh

printf '\n'
[ ${#failed[@]} -eq 0 ] && echo "nothing failed" && exit 0
printf 'failed: %s\n' "${failed[@]}"
exit 1
