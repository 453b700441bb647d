#!/usr/bin/env bash
# Configures and builds into BUILD_DIR (default build/). Extra arguments go to
# CMake's configure step.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-RelWithDebInfo} "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
