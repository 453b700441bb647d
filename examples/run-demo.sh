#!/usr/bin/env bash
# Runs the tray monitor on a copy of the demo installation, with the stand-in
# server in its bin directory, so that the menu lists two instances that can
# be started and stopped for real.
#
# Usage: examples/run-demo.sh [--headless] BUILD_DIR
#   --headless  no display needed: runs the monitor on a private X server
#               with a tray host, opens its menu and saves a screenshot.
#
# The copy lives in $XDG_STATE_HOME/corvanta-monitor/demo (by default
# ~/.local/state/corvanta-monitor/demo) and is refreshed on every run; lock
# files and logs of servers already running there are left alone.
set -euo pipefail

headless=0
if [[ ${1:-} == --headless ]]; then
    headless=1
    shift
fi
if [[ $# -ne 1 ]]; then
    sed -n '6,8p' "$0" | sed 's/^# //' >&2
    exit 2
fi
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
monitor=$build/bin/corvanta-monitor
standin=$build/bin/corvanta
for program in "$monitor" "$standin"; do
    if [[ ! -x $program ]]; then
        echo "run-demo.sh: $program is missing; build first (scripts/build.sh)." >&2
        exit 1
    fi
done

state=${XDG_STATE_HOME:-}
[[ $state == /* ]] || state=$HOME/.local/state
demo=$state/corvanta-monitor/demo

# Refresh: copy the installation over the old copy without deleting anything,
# so servers started in an earlier run keep their lock files and logs. The
# server binary is replaced by rename, which a running server survives.
mkdir -p "$demo"
cp -R "$here/installation/." "$demo/"
cp "$standin" "$demo/bin/.corvanta.new"
mv -f "$demo/bin/.corvanta.new" "$demo/bin/corvanta"

# Crops an image of the whole screen to the given windows and a small margin.
crop_to_windows() {
    local image=$1 left=100000 top=100000 right=0 bottom=0 id X Y WIDTH HEIGHT
    shift
    for id in "$@"; do
        eval "$(xdotool getwindowgeometry --shell "$id")"
        ((X < left)) && left=$X
        ((Y < top)) && top=$Y
        ((X + WIDTH > right)) && right=$((X + WIDTH))
        ((Y + HEIGHT > bottom)) && bottom=$((Y + HEIGHT))
    done
    ((right > left)) || return 0
    left=$((left > 8 ? left - 8 : 0)) top=$((top > 8 ? top - 8 : 0))
    convert "$image" -crop "$((right - left + 8))x$((bottom - top + 8))+$left+$top" +repage "$image"
}

if ((headless)); then
    work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-demo.XXXXXX")
    # shellcheck source=../tests/e2e/xsession.sh
    source "$here/../tests/e2e/xsession.sh"
    monitor_pid=
    trap '[[ -n $monitor_pid ]] && kill "$monitor_pid" 2>/dev/null; xs_stop' EXIT
    xs_start
    mkdir -p "$work/runtime" && chmod 700 "$work/runtime"
    CORVANTA_HOME=$demo XDG_RUNTIME_DIR=$work/runtime "$monitor" >"$work/monitor.log" 2>&1 &
    monitor_pid=$!
    xs_wait 10 xs_tray_icon >/dev/null || { echo "The tray icon did not appear; see $work" >&2; exit 1; }
    xs_open_menu
    xs_screenshot menu
    crop_to_windows "$work/screenshots/menu.png" "$(xs_tray_icon)" \
        $(xdotool search --maxdepth 1 --onlyvisible --class '^corvanta-monitor$')
    echo "The monitor's menu on a private X server: $work/screenshots/menu.png"
    exit 0
fi

if [[ -z ${DISPLAY:-} && -z ${WAYLAND_DISPLAY:-} ]]; then
    echo "No display (DISPLAY and WAYLAND_DISPLAY are unset): try '$0 --headless $1' for a screenshot of the menu on a private X server." >&2
    exit 1
fi

echo "Demo installation: $demo"
echo "The monitor is the \"C\" in the system tray. Servers started from it keep running after it quits; stop them from its menu."
CORVANTA_HOME=$demo exec "$monitor"
