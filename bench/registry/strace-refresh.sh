#!/usr/bin/env bash
# Prints the system calls of one refresh of a running instance (pid known) and
# of a stopped one (configuration cached), traced with strace -f on a driver
# that refreshes once between markers. Usage: strace-refresh.sh [build-dir]
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build}
driver=$build/bin/bench_registry_refresh_driver
if [[ ! -x $driver ]]; then
    cmake --build "$build" --target bench_registry_refresh_driver >/dev/null
fi
trace=$(mktemp)
trap 'rm -f "$trace"' EXIT
strace -f -qq -o "$trace" "$driver" 2>/dev/null
# Only the traced process's own lines between the markers; the sleeping
# stand-in server child contributes nothing there.
awk '/write\(2, "=== refresh .*: begin/ { on = 1 }
     on { sub(/^[0-9]+ +/, ""); print }
     /write\(2, "=== refresh .*: end/ { on = 0 }' "$trace"
