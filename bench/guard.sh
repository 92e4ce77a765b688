#!/usr/bin/env bash
# Guards against regressions: instructions per request of a few small fixed workloads beside the figures in guard.json.
#   bench/guard.sh [--verbose] [--runs N]   exit status 1 when one costs 5 % more
#   bench/guard.sh --update                 makes what is measured now the figures
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
source "$root/scripts/packages.sh"
source "$here/build.sh"
build_bench
exec /usr/bin/python3 "$here/guard.py" --program "$bench_program" "$@"
