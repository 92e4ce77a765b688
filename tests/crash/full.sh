#!/usr/bin/env bash
# All that tests/crash can do, in numbers that take an hour or two; prints what was tried and what was broken.
#   tests/crash/full.sh [BUILD]      BUILD: a build folder that has the tests (default: build/dev)
# Each script takes its own arguments and prints its seed: see --help of each, and docs/testing-crashes.md.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(realpath "${1:-$here/../../build/dev}")
worker=$build/tests/crash/crash_worker
export FSYS_COMMAND=$build/tools/fsys CRASH_WORKER=$worker PYTHONDONTWRITEBYTECODE=1
export CRASH_ROUNDS=${CRASH_ROUNDS:-8}
failed=()

step() {  # COMMAND...
    printf '\n== %s\n' "${*//$build\//}"
    local status=0
    "$@" || status=$?
    [ $status -eq 0 ] || failed+=("$status: ${*//$build\//}")
}
power() { step "$here/power_loss.py" --worker "$worker" "$@"; }

step "$here/kills.py" --worker "$worker" --command "$FSYS_COMMAND" --kills 2001
step "$here/kills.py" --worker "$worker" --command "$FSYS_COMMAND" --each-call --kills 9
power --file-system ext4 --states 1000 --steps 150
power --file-system xfs --states 200 --steps 60
power --file-system btrfs --states 200 --steps 60
for kind in ext4 xfs btrfs; do
    power --file-system $kind --work locations --states 100 --steps 60
done
power --file-system ext4 --work record --states 300 --steps 40
power --file-system xfs --work record --states 150 --steps 40
power --file-system btrfs --work record --states 150 --steps 40
for kind in ext4 xfs btrfs; do
    power --file-system $kind --states 50 --way naive --expect-broken
    power --file-system $kind --states 50 --way rename --expect-broken
done
for what in files folders; do
    for work in save locations record; do
        power --work $work --states 50 --steps 16 --without $what --no-flush "$build/tests/crash/libno_flush.so" \
            --expect-broken
    done
done
step "$here/failing_test.py"
for kind in ext4 tmpfs; do
    step "$here/../system/with_file_system.sh" $kind \
        "$build/tests/crash/crash_tests" --gtest_filter='SaveOnAFullDisk.*' --gtest_brief=1
done
for kind in small small-xfs small-tmpfs quota; do
    step "$here/../system/with_file_system.sh" $kind \
        "$build/tests/crash/crash_tests" --gtest_filter='FullDiskMoments.*' --gtest_brief=1
done
step "$here/../soak.sh" --minutes 20 --build "$build"

printf '\n'
[ ${#failed[@]} -eq 0 ] && echo "nothing failed" && exit 0
printf 'failed with %s\n' "${failed[@]}"
exit 1
