#!/usr/bin/env bash
# Usage: idle-probe.sh SECONDS MONITOR STANDIN BARE_TRAY [--check] [-- PROGRAM ARGS...]
# Counts the wake-ups (voluntary and involuntary context switches, summed over
# all threads from /proc/PID/task/*/status) of the monitor and of a bare Qt
# tray program over SECONDS, side by side in the same X session with a tray
# host. The monitor has had its menu opened and closed once and watches a
# running server. With --check it fails when the monitor wakes more often
# than the bare tray program. After "--" another program stands in for the
# monitor (to show that the check catches a timer).
set -euo pipefail
seconds=$1 monitor=$(realpath "$2") standin=$(realpath "$3") bare=$(realpath "$4")
shift 4
check=false
[[ ${1:-} == --check ]] && { check=true; shift; }
probed=("$monitor")
[[ ${1:-} == -- ]] && { shift; probed=("$@"); }
here=$(cd "$(dirname "$0")" && pwd)
for tool in Xvfb trayer xdotool; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-idle.XXXXXX")
# shellcheck source=../../tests/e2e/xsession.sh
source "$here/../../tests/e2e/xsession.sh"
pids=() server=''
cleanup() {
    [[ -z $server ]] || kill -9 "$server" 2>/dev/null || true
    ((${#pids[@]} == 0)) || kill "${pids[@]}" 2>/dev/null || true
    xs_stop
    rm -rf "$work"
}
trap cleanup EXIT

# Wake-ups of every thread of a process so far.
wakeups() {
    cat /proc/"$1"/task/*/status 2>/dev/null |
        awk '/^(non)?voluntary_ctxt_switches/ { n += $2 } END { print n + 0 }'
}
threads() { ls /proc/"$1"/task | wc -l; }
# The docked tray window of a program, found by its window class.
tray_window() {
    comm -23 <(xdotool search --onlyvisible --class "^$1\$" 2>/dev/null | sort) \
        <(xdotool search --maxdepth 1 --class "^$1\$" 2>/dev/null | sort) | head -n 1 | grep .
}
# Opens and closes the program's menu from its tray icon.
open_and_close() {
    local window
    window=$(tray_window "$1") || return 1
    xdotool mousemove --window "$window" 8 8 click 1
    xs_wait 5 xdotool search --maxdepth 1 --onlyvisible --class "^$1\$" >/dev/null || return 1
    sleep 0.5 # the monitor refreshes while open: let it tick
    xdotool key Escape
    xs_wait 5 eval "! xdotool search --maxdepth 1 --onlyvisible --class '^$1\$' >/dev/null"
}

home=$work/installation
cp -R "$here/../../examples/installation" "$home"
cp "$standin" "$home/bin/corvanta"
mkdir -p "$work/home" "$work/runtime" "$work/config"
chmod 700 "$work/runtime"
xs_start || { echo "no X session" >&2; exit 1; }
export HOME=$work/home XDG_RUNTIME_DIR=$work/runtime XDG_CONFIG_HOME=$work/config
export CORVANTA_HOME=$home CORVANTA_STANDIN_PORT=0
if command -v dbus-daemon >/dev/null; then
    dbus-daemon --session --nofork --print-address=1 >"$work/bus" 2>/dev/null &
    pids+=($!)
    xs_wait 5 test -s "$work/bus"
    DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus")
    export DBUS_SESSION_BUS_ADDRESS
fi
# A running server for the monitor to watch (its pidfd and its directories).
(cd "$home/database" && exec "$home/bin/corvanta" -f) &
server=$!
xs_wait 10 test -s "$home/database/corvanta.lck"

"${probed[@]}" >"$work/probed.log" 2>&1 &
probed_pid=$!
pids+=("$probed_pid")
"$bare" >"$work/bare.log" 2>&1 &
bare_pid=$!
pids+=("$bare_pid")
probed_class=$(basename "${probed[0]}")
xs_wait 10 tray_window "$probed_class" >/dev/null || { echo "no tray icon for $probed_class" >&2; exit 1; }
xs_wait 10 tray_window bare_tray >/dev/null || { echo "no tray icon for bare_tray" >&2; exit 1; }
open_and_close "$probed_class" || { echo "the menu of $probed_class did not open and close" >&2; exit 1; }
open_and_close bare_tray || { echo "the menu of bare_tray did not open and close" >&2; exit 1; }
sleep 1 # let both settle after the menus

a0=$(wakeups "$probed_pid") b0=$(wakeups "$bare_pid")
sleep "$seconds"
a1=$(wakeups "$probed_pid") b1=$(wakeups "$bare_pid")
probed_n=$((a1 - a0)) bare_n=$((b1 - b0))
printf 'wake-ups in %s s with the menu closed (context switches, all threads):\n' "$seconds"
printf '  %-20s %6d  (%d threads)\n' "$probed_class" "$probed_n" "$(threads "$probed_pid")"
printf '  %-20s %6d  (%d threads)\n' "bare Qt tray" "$bare_n" "$(threads "$bare_pid")"
if $check && ((probed_n > bare_n)); then
    echo "FAIL: $probed_class woke $((probed_n - bare_n)) times more than a bare tray program" >&2
    exit 1
fi
