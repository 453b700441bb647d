#!/usr/bin/env bash
# Builds the configuration benchmarks optimised (Release) in build-bench and
# runs them; the ratio table comes last. Extra arguments go to the benchmark.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${BUILD_DIR:-$root/build-bench}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCORVANTA_TESTS=OFF \
    -DCORVANTA_GUI=OFF >/dev/null
cmake --build "$build" -j 2 --target bench_cfg
"$build/bin/bench_cfg" "$@"
