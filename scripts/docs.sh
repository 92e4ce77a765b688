#!/usr/bin/env bash
# Builds the site of the documentation from docs/ and mkdocs.yml, and below its folder api the reference of the public
# headers. A warning is an error.
#   scripts/docs.sh --pages [FOLDER]     the site alone
#   scripts/docs.sh [FOLDER]     FOLDER: where to (default: build/docs)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/packages.sh"
need_packages "${docs_packages[@]}"
pages=no
[ "${1:-}" != --pages ] || { pages=yes && shift; }
target=$(realpath -m "${1:-$root/build/docs}")
mkdir -p "$(dirname "$target")"
cd "$root"
mkdocs build --quiet --strict --clean --site-dir "$target"
if [ $pages = no ]; then
    need_packages "${build_packages[@]}" doxygen
    [ -f build/dev/build.ninja ] || cmake --preset dev >/dev/null
    cmake --build build/dev --target api_docs >/dev/null
    rm -rf "$target/api" && cp -r build/dev/docs/api/html "$target/api"
fi
echo "$target/index.html"
