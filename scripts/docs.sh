#!/usr/bin/env bash
# Builds the site of the documentation from docs/ and mkdocs.yml. A warning is an error.
#   scripts/docs.sh [FOLDER]     FOLDER: where to (default: build/docs)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/packages.sh"
need_packages "${docs_packages[@]}"
target=$(realpath -m "${1:-$root/build/docs}")
mkdir -p "$(dirname "$target")"
cd "$root"
mkdocs build --quiet --strict --clean --site-dir "$target"
echo "$target/index.html"
