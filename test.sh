#!/usr/bin/env bash
# Sets up what is missing, builds, and runs every test; prints the totals and what was skipped, and why.
#   ./test.sh [--quick]     --quick leaves out the sanitizer builds, the static checks, the fuzz targets and the
#                           count of instructions
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$root/scripts/packages.sh"

quick=no
case "${1:-}" in
"") ;;
--quick) quick=yes ;;
*) echo "usage: ./test.sh [--quick]" >&2 && exit 2 ;;
esac

need_packages "${build_packages[@]}" "${test_packages[@]}" "${network_packages[@]}" "${docs_packages[@]}" \
    "${reader_packages[@]}"
cd "$root"
reports=$root/build/reports
rm -rf "$reports" && mkdir -p "$reports"
jobs=$(nproc)
failed=()

step() { printf '\n== %s\n' "$*"; }
check() {  # NAME COMMAND...: a check that is either right or wrong
    local name=$1 && shift
    step "$name"
    "$@" || failed+=("$name")
}
build() {  # PRESET
    step "build $1"
    cmake --preset "$1" "${ccache_options[@]}" >"$reports/configure-$1.log" 2>&1 ||
        { tail -n 30 "$reports/configure-$1.log"; return 1; }
    cmake --build --preset "$1" -j "$jobs" >"$reports/build-$1.log" 2>&1 ||
        { grep -nE 'error|warning|FAILED' "$reports/build-$1.log" | head -n 40; return 1; }
}
run_tests() {  # PRESET: its results go to a report that the end adds up
    step "test $1"
    rm -rf "build/$1/gtest"
    # Most tests wait for a disk or a process more than they compute.
    ctest --preset "$1" -j "$((3 * jobs))" --output-junit "$reports/$1.xml" >"$reports/test-$1.log" 2>&1 || failed+=("tests, $1")
    python3 scripts/report.py "$reports/$1.xml"
}

build dev
run_tests dev
run_tests threadpool
check "format" scripts/check-format.sh
[ ! -f ../shared/checks/texts.py ] || check "the system's own texts" python3 ../shared/checks/texts.py ole
if [ $quick = no ]; then
    build asan
    run_tests asan
    build tsan
    run_tests tsan
    check "clang-tidy" scripts/check-tidy.sh
    check "fuzz targets" fuzz/run.sh --seconds 20
    check "instructions per request" bench/guard.sh
fi

step "totals"
python3 scripts/report.py --totals "$reports"/*.xml
if [ ${#failed[@]} -gt 0 ]; then
    printf 'failed: %s\n' "${failed[@]}"
    exit 1
fi
