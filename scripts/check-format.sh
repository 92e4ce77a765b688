#!/usr/bin/env bash
# Every source of ours is formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
find ole tools python tests examples -name '*.h' -o -name '*.cpp' | sort | xargs clang-format-14 --dry-run --Werror
