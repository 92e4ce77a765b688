#!/usr/bin/env bash
# What takes longer than a test run may: five minutes of each fuzz target, and the scan of a million files.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fuzz/run.sh --seconds "${FSYS_NIGHTLY_SECONDS:-300}"
cmake --preset dev >/dev/null
cmake --build --preset dev --target fsys_tests
FSYS_TEST_FOLDER_FILES=1000000 build/dev/tests/fsys/fsys_tests --gtest_filter=HostileFolders.ALargeFolderIsScannedWhole
