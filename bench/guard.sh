#!/usr/bin/env bash
# Guards against regressions: instructions per request of a few small fixed workloads beside the figures in guard.json.
#   bench/guard.sh [--verbose] [--runs N]   exit status 1 when one costs 5 % more
#   bench/guard.sh --update                 makes what is measured now the figures
#   bench/guard.sh --build                  builds what it needs and stops
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
source "$root/scripts/packages.sh"
source "$here/build.sh"
need_packages "${build_packages[@]}" "${guard_packages[@]}"
build=${FSYS_GUARD_BUILD:-$root/build/guard}
# Without debug information, which costs a third of the build and no instruction.
build_bench "$build" -DFSYS_BENCH_PEERS=OFF -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG"
[ "${1:-}" != --build ] || exit 0
exec /usr/bin/python3 "$here/guard.py" --program "$build/bench/fsys_bench" "$@"
