#!/usr/bin/env bash
# Measures this system beside its peers: installs what is missing, builds release, runs the plan.
#   bench/run.sh [--quick] [--subject NAME...] [--row TEXT] [--rounds N] [--seconds S] [--frame-bytes N]
# Results go to bench/results. Test files are made below bench/work, or $FSYS_BENCH_DIR, and removed at the end.
# The build goes to $FSYS_BENCH_BUILD, else build/bench.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
source "$root/scripts/packages.sh"
source "$here/build.sh"
need_packages "${build_packages[@]}" "${bench_packages[@]}"
build=${FSYS_BENCH_BUILD:-$root/build/bench}
build_bench "$build"
# Debian's own Python, for which its packages are.
exec /usr/bin/python3 "$here/run.py" --program "$build/bench/fsys_bench" "$@"
