#!/usr/bin/env bash
# Sets everything up, copies the demo installation to a writable place and
# runs the monitor on it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
export BUILD_DIR=${BUILD_DIR:-$root/build}
"$root/scripts/build.sh"
monitor=$BUILD_DIR/bin/corvanta-monitor
if [[ ! -x $monitor ]]; then
    echo "Everything is built; the tray monitor itself is not part of this tree yet." >&2
    exit 0
fi
exec "$root/examples/run-demo.sh" "$BUILD_DIR"
