#!/usr/bin/env bash
# Usage: tray_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN NOTIFICATION_RECORDER
# The monitor on a copy of the demo installation with the stand-in server, in a
# real tray host, driven with xdotool. On failure its screenshots and logs stay.
set -euo pipefail
monitor=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
recorder=$(realpath "$3")
# shellcheck source=xsession.sh
source "$here/xsession.sh"
xs_require Xvfb trayer xdotool import compare dbus-daemon
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-e2e.XXXXXX")
home=$work/installation
lock=$home/database/corvanta.lck
monitor_pid='' step=setup bus_pids=()

cleanup() {
    local status=$?
    ((${#bus_pids[@]} == 0)) || kill "${bus_pids[@]}" 2>/dev/null || true
    ! server_runs || kill -9 "$(lock_pid)" || true # stand-ins outlive the monitor
    xs_finish $status
}
trap cleanup EXIT
lock_pid() { tr -dc 0-9 2>/dev/null <"$lock" | head -c 10; }
server_runs() { [[ $(readlink "/proc/$(lock_pid)/exe") == "$home/bin/corvanta" ]]; }
# The tray icon's pixels, and whether they equal a saved capture.
icon_shot() { import -window "$(xs_tray_icon)" "$work/icon-$1.png" 2>/dev/null; }
icon_is() {
    icon_shot now && [[ $(compare -metric AE "$work/icon-$1.png" "$work/icon-now.png" null: 2>&1) == 0 ]]
}
reaped() { [[ ! -e /proc/$server_pid ]]; } # not even a zombie
server_gone() { ! kill -0 "$server_pid" 2>/dev/null || [[ $(ps -o stat= -p "$server_pid") == Z* ]]; }
start_server() {
    xs_choose_confirmed Down "$position"
    xs_wait 15 server_runs || xs_fail "the server did not start"
    server_pid=$(lock_pid)
}

cp -R "$here/../../examples/installation" "$home"
cp "$2" "$home/bin/corvanta"
mkdir -p "$work/fakebin" "$work/home" "$work/runtime"
chmod 700 "$work/runtime"
# Without a desktop session the monitor hands URLs to xdg-open.
printf '#!/bin/sh\nprintf "%%s\\n" "$@" >>"%s/opened"\n' "$work" >"$work/fakebin/xdg-open"
chmod +x "$work/fakebin/xdg-open"
# The menu lists the instances in the order of their directories' paths.
instances=$(cd "$home" && printf '%s\n' */corvanta.ini | LC_ALL=C sort)
count=$(wc -l <<<"$instances")
position=$(grep -nx 'database/corvanta.ini' <<<"$instances" | cut -d: -f1)

step=session
xs_start || xs_fail "X session"
export HOME=$work/home XDG_RUNTIME_DIR=$work/runtime CORVANTA_HOME=$home
# A private session bus whose notification server records what it is shown.
dbus-daemon --session --nofork --print-address=1 >"$work/bus" 2>"$work/bus.log" &
bus_pids+=($!)
xs_wait 5 test -s "$work/bus" || xs_fail "no session bus"
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus")
export DBUS_SESSION_BUS_ADDRESS
"$recorder" "$work/notifications" >"$work/recorder.out" 2>&1 &
bus_pids+=($!)
xs_wait 5 grep -qx ready "$work/recorder.out" || xs_fail "no notification server"
xs_launch env PATH="$work/fakebin:$PATH" XDG_CONFIG_HOME="$work/config" LANGUAGE='' \
    LC_ALL=C.UTF-8 "$monitor"

step=start
start_server

step=console # below the instances: the diagnostic log, then the console
xs_choose Down $((count + 2))
xs_wait 5 grep -q . "$work/opened" || xs_fail "nothing was opened"
[[ $(cat "$work/opened") == "http://localhost:8890/kelvarine/" ]] || xs_fail "opened $(cat "$work/opened")"

xs_login_on_off "$work/config/autostart/corvanta-monitor.desktop" "Exec=$monitor --home $home"

step=stop
xs_choose_confirmed Down "$position"
xs_wait 15 server_gone || xs_fail "the server did not stop"
xs_wait 5 reaped || xs_fail "the stopped server stays a zombie"
[[ ! -e $lock ]] || xs_fail "the lock file stayed"

step=crash # started from the menu, killed from outside, seen without opening the menu
xs_wait 5 xs_no_popup || xs_fail "a window is still open"
icon_shot stopped
start_server
xs_wait 5 eval '! icon_is stopped' || xs_fail "the icon did not change when the server started"
kill -9 "$server_pid"
xs_wait 10 server_gone || xs_fail "the server did not end"
xs_wait 10 test -s "$work/notifications" || xs_fail "no notification"
xs_wait 5 icon_is stopped || xs_fail "the icon did not return to stopped"
xs_screenshot "$step-after"
[[ $(cat "$work/notifications") == "Default Instance stopped | The server was killed by signal 9. | open-log | com.nordelix.CorvantaMonitor" ]] ||
    xs_fail "unexpected notifications: $(cat "$work/notifications")"
xs_wait 5 reaped || xs_fail "the killed server stays a zombie"

xs_quit
