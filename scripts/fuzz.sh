#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS (default 60)
# from its committed seed corpus.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
"$root/scripts/deps.sh"
build=$root/build-fuzz
# Findings end the run even where a sanitizer would carry on by default.
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ASAN_OPTIONS=abort_on_error=1
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCORVANTA_FUZZ=ON -DCORVANTA_TESTS=OFF -DCORVANTA_BENCH=OFF -DCORVANTA_GUI=OFF \
    -DCORVANTA_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target fuzzers
for fuzzer in "$build"/fuzz/fuzz_*; do
    [[ -x $fuzzer ]] || continue
    name=$(basename "$fuzzer")
    corpus=$build/corpus/$name
    mkdir -p "$corpus"
    dirs=("$corpus")
    seeds=$root/fuzz/corpus/${name#fuzz_}
    [[ -d $seeds ]] && dirs+=("$seeds")
    echo "-- $name for ${seconds}s"
    # Crash artifacts land in the build tree; a crash fails the run.
    (cd "$build" && "$fuzzer" -max_total_time="$seconds" -max_len=65536 -timeout=10 \
        -rss_limit_mb=2048 -print_final_stats=1 "${dirs[@]}" >"$build/$name.log" 2>&1) ||
        { tail -n 40 "$build/$name.log"; exit 1; }
    tail -n 6 "$build/$name.log"
done
