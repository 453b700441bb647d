#!/usr/bin/env bash
# Sets up what the demo needs (and nothing for tests or benchmarks), builds
# only the monitor and the stand-in server, copies the demo installation to a
# writable place and runs the monitor on it. Extra arguments go to
# examples/run-demo.sh before the build directory (e.g. --headless).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
kind=demo
[[ ${1:-} == --headless ]] && kind=headless
"$root/scripts/deps.sh" "$kind"
build=${BUILD_DIR:-$root/build-demo}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-RelWithDebInfo} \
    -DCORVANTA_TESTS=OFF -DCORVANTA_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target corvanta-monitor corvanta
exec "$root/examples/run-demo.sh" "$@" "$build"
