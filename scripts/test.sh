#!/usr/bin/env bash
# Sets everything up, builds and runs every test.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
export BUILD_DIR=${BUILD_DIR:-$root/build}
werror=OFF
[[ ${CI:-} == true ]] && werror=ON
"$root/scripts/build.sh" -DCORVANTA_WERROR=$werror "$@"
cd "$BUILD_DIR"
ctest --output-on-failure -j "$(nproc)" --timeout 300
