#!/usr/bin/env bash
# The tests in the memory of valgrind: reads of what nobody wrote, uses of what was freed, leaks, open descriptors.
#   tests/memcheck.sh [TEST-REGEX]      only tests whose SUITE.NAME the regular expression finds
# $FSYS_BUILD is a build folder that has the tests (default: build/dev), $FSYS_MEMCHECK_JOBS how many run at a time
# (default: 2). Prints what was found and a sum; exit status 1 when something was found.
set -euo pipefail
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$tests/../scripts/packages.sh"
need_packages "${guard_packages[@]}"
exec python3 "$tests/memcheck.py" --build "${FSYS_BUILD:-$tests/../build/dev}" --jobs "${FSYS_MEMCHECK_JOBS:-2}" -- "$@"
