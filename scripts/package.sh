#!/usr/bin/env bash
# Builds the release preset and makes the Debian packages of it, in build/packages.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/packages.sh"
need_packages "${build_packages[@]}" "${packaging_packages[@]}"
cd "$root"
cmake --preset release "${ccache_options[@]}"
cmake --build --preset release
rm -rf build/packages
cpack -G DEB --config build/release/CPackConfig.cmake -B build/packages
rm -rf build/packages/_CPack_Packages
ls -l build/packages
