#!/usr/bin/env bash
# Builds the fuzz targets and runs them; prints the executions of each. An input that breaks a rule is left in
# build/fuzz-crashes, its report is printed, and the exit status is 1.
#   fuzz/run.sh [--seconds N] [--jobs N] [--corpus DIR] [TARGET...]
#     --seconds  for each target; 20 unless given. 0 tries the inputs that are kept and nothing else
#     --jobs     targets that run at the same time; one per processor unless given
#     --corpus   where inputs that were found are gathered from run to run; build/fuzz-corpus unless given
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/packages.sh"

seconds=20 jobs=$(nproc) corpus=$root/build/fuzz-corpus targets=()
while [ $# -gt 0 ]; do
    case "$1" in
    --seconds) seconds=$2 && shift 2 ;;
    --jobs) jobs=$2 && shift 2 ;;
    --corpus) corpus=$(realpath -m "$2") && shift 2 ;;
    -*) echo "usage: fuzz/run.sh [--seconds N] [--jobs N] [--corpus DIR] [TARGET...]" >&2 && exit 2 ;;
    *) targets+=("${1%Fuzz}") && shift ;;
    esac
done
if [ ${#targets[@]} -eq 0 ]; then
    for source in "$root"/fuzz/*Fuzz.cpp; do targets+=("$(basename "$source" Fuzz.cpp)"); done
fi

need_packages "${build_packages[@]}" "${fuzz_packages[@]}"
cd "$root"
build=${FSYS_FUZZ_BUILD:-build/fuzz}
log=$build/log && mkdir -p "$log" build/fuzz-crashes
cmake --preset fuzz -B "$build" "${ccache_options[@]}" >"$log/configure" 2>&1 || { tail -n 30 "$log/configure"; exit 1; }
ninja -C "$build" -j "$(nproc)" "${targets[@]/%/Fuzz}" >"$log/build" 2>&1 ||
    { grep -nE 'error|warning|FAILED' "$log/build" | head -n 40; exit 1; }

# The kept inputs alone, or with what is found on the way. Standard streams of a target are closed: some complain
# about every input.
run_target() {  # TARGET
    local name=$1 program=$build/fuzz/$1Fuzz options=(-close_fd_mask=3 -timeout=30 -rss_limit_mb=4096 -print_final_stats=1
        -detect_leaks=0)
    local found=$corpus/$name kept=fuzz/corpus/$name dictionary=fuzz/dictionaries/$name
    mkdir -p "$found" "$kept"
    [ ! -f "$dictionary" ] || options+=("-dict=$dictionary")
    # Where an input does much, weighing the inputs against each other takes longer than trying them, and so does
    # noting from where each piece of memory came. A report has the places all the same: it is made once more below.
    if [[ $name = CommandLine || $name = LocationLists ]]; then
        options+=(-entropic=0)
        export ASAN_OPTIONS=malloc_context_size=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}
    fi
    # Every word is compared with every command; what many words reach, a few reach sooner.
    [ "$name" != CommandLine ] || options+=(-max_len=256)
    # What the engine does depends on the inputs before, so what it says cannot be had once more.
    [ "$name" != Engine ] || options[0]=-close_fd_mask=1
    if [ "$seconds" -eq 0 ]; then options+=(-runs=0); else options+=("-max_total_time=$seconds"); fi
    nice -n 10 "$program" "${options[@]}" "-artifact_prefix=build/fuzz-crashes/$name-" "$found" "$kept" \
        >"$log/$name" 2>&1 || touch "$log/$name.failed"
}
export -f run_target
export build log corpus seconds
rm -f "$log"/*.failed build/fuzz-crashes/*
# Leaks are looked for at the end of a run.
printf '%s\n' "${targets[@]}" | xargs -P "$jobs" -I{} bash -c 'run_target {}'

status=0 total=0
for name in "${targets[@]}"; do
    count=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log/$name")
    printf '%-16s %12s executions\n' "$name" "${count:-?}"
    total=$((total + ${count:-0}))
    [ -e "$log/$name.failed" ] || continue
    status=1
    grep -aE 'SUMMARY|broken:|Test unit written' "$log/$name" || tail -n 5 "$log/$name"
    # Once more with its streams open, for what it says itself.
    for input in build/fuzz-crashes/"$name"-*; do
        [ ! -e "$input" ] || { timeout 60 "$build/fuzz/${name}Fuzz" "$input" 2>&1 || true; } |
            grep -aE 'ERROR|broken:|runtime error|^ +#[0-9]+ .*/(ole|tools|fuzz)/' | head -n 20
    done
done
printf '%-16s %12s executions\n' all "$total"
exit $status
