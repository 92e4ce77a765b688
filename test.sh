#!/usr/bin/env bash
# Sets up what is missing, builds, and runs every test; prints the totals and what was skipped, and why.
#   ./test.sh [--quick]     --quick leaves out the sanitizer builds, the static checks, the fuzz targets and the
#                           count of instructions
# Tests mostly wait, compilers and checks compute: while one build is tested, the next steps that compute run beside
# the tests, one after the other and at the lowest priority (scripts/beside.sh). The output keeps the order of reading.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$root/scripts/packages.sh"
source "$root/scripts/beside.sh"

quick=no
case "${1:-}" in
"") ;;
--quick) quick=yes ;;
*) echo "usage: ./test.sh [--quick]" >&2 && exit 2 ;;
esac

need_packages "${build_packages[@]}" "${test_packages[@]}" "${network_packages[@]}" "${docs_packages[@]}" \
    "${reader_packages[@]}"
if [ $quick = no ]; then  # now, and not while tests run
    need_packages "${fuzz_packages[@]}" "${guard_packages[@]}"
fi
cd "$root"
reports=$root/build/reports
rm -rf "$reports" && mkdir -p "$reports"
jobs=$(nproc)
failed=()

step() { printf '\n== %s (%d:%02d)\n' "$*" $((SECONDS / 60)) $((SECONDS % 60)); }
check() {  # NAME COMMAND...: a check that is either right or wrong
    local name=$1 && shift
    step "$name"
    "$@" || failed+=("$name")
}
build() {  # PRESET
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
build_and_test() {  # PRESET that is being built beside other tests
    step "build $1"
    if finished "build-$1"; then run_tests "$1"; else failed+=("build $1"); fi
}

step "build dev"
build dev
if [ $quick = no ]; then
    beside "$reports/beside" \
        build-asan "build asan" \
        build-tsan "build tsan" \
        tidy "scripts/check-tidy.sh" \
        fuzz "fuzz/run.sh --seconds 20" \
        build-guard "bench/guard.sh --build"
fi
run_tests dev
run_tests threadpool
check "format" scripts/check-format.sh
[ ! -f ../shared/checks/texts.py ] || check "the system's own texts" python3 ../shared/checks/texts.py ole
if [ $quick = no ]; then
    build_and_test asan
    build_and_test tsan
    check "clang-tidy" finished tidy
    check "fuzz targets" finished fuzz
    check "build guard" finished build-guard
    # Alone: where threads get in each other's way instructions are added.
    check "instructions per request" bench/guard.sh
fi

step "totals"
python3 scripts/report.py --totals "$reports"/*.xml
if [ ${#failed[@]} -gt 0 ]; then
    printf 'failed: %s\n' "${failed[@]}"
    exit 1
fi
