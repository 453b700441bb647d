#!/usr/bin/env bash
# Usage: tray_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN NOTIFICATION_RECORDER
# The monitor on a copy of the demo installation with the stand-in server, in a
# real tray host, driven with xdotool. On failure its screenshots and logs stay.
set -euo pipefail
monitor=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
recorder=$(realpath "$3")
for tool in Xvfb trayer xdotool import compare dbus-daemon; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-e2e.XXXXXX")
# shellcheck source=xsession.sh
source "$here/xsession.sh"
home=$work/installation
lock=$home/database/corvanta.lck
entry=$work/config/autostart/corvanta-monitor.desktop
monitor_pid='' step=setup bus_pids=()

cleanup() {
    local status=$?
    [[ -z $monitor_pid ]] || kill "$monitor_pid" 2>/dev/null || true
    ((${#bus_pids[@]} == 0)) || kill "${bus_pids[@]}" 2>/dev/null || true
    ! server_runs || kill -9 "$(lock_pid)" || true # stand-ins outlive the monitor
    xs_stop
    ((status == 0)) || echo "FAILED at step '$step' (exit $status); screenshots and logs in $work" >&2
    ((status != 0)) || rm -rf "$work"
}
trap cleanup EXIT
lock_pid() { tr -dc 0-9 2>/dev/null <"$lock" | head -c 10; }
server_runs() { [[ $(readlink "/proc/$(lock_pid)/exe") == "$home/bin/corvanta" ]]; }
monitor_gone() { ! kill -0 "$monitor_pid" 2>/dev/null; }
# The tray icon's pixels, and whether they equal a saved capture.
icon_shot() { import -window "$(xs_tray_icon)" "$work/icon-$1.png" 2>/dev/null; }
icon_is() {
    icon_shot now && [[ $(compare -metric AE "$work/icon-$1.png" "$work/icon-now.png" null: 2>&1) == 0 ]]
}
reaped() { [[ ! -e /proc/$server_pid ]]; } # not even a zombie
server_gone() { ! kill -0 "$server_pid" 2>/dev/null || [[ $(ps -o stat= -p "$server_pid") == Z* ]]; }

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
PATH="$work/fakebin:$PATH" XDG_CONFIG_HOME="$work/config" LANGUAGE='' LC_ALL=C.UTF-8 \
    "$monitor" >"$work/monitor.log" 2>&1 &
monitor_pid=$!
xs_wait 10 xs_tray_icon >/dev/null || xs_fail "the tray icon did not appear"

step=start
xs_choose Down "$position"
xs_confirm
xs_wait 15 server_runs || xs_fail "the server did not start"
server_pid=$(lock_pid)

step=console # below the instances: the diagnostic log, then the console
xs_choose Down $((count + 2))
xs_wait 5 grep -q . "$work/opened" || xs_fail "nothing was opened"
[[ $(cat "$work/opened") == "http://localhost:8890/kelvarine/" ]] || xs_fail "opened $(cat "$work/opened")"

step='login-on' # from the bottom: quit, then the login item
xs_choose Up 2
xs_wait 5 test -f "$entry" || xs_fail "no autostart entry"
grep -qx "Exec=$monitor --home $home" "$entry" || xs_fail "autostart entry: $(cat "$entry")"
step='login-off'
xs_choose Up 2
xs_wait 5 test ! -e "$entry" || xs_fail "the autostart entry stayed"

step=stop
xs_choose Down "$position"
xs_confirm
xs_wait 15 server_gone || xs_fail "the server did not stop"
xs_wait 5 reaped || xs_fail "the stopped server stays a zombie"
[[ ! -e $lock ]] || xs_fail "the lock file stayed"

step=crash # started from the menu, killed from outside, seen without opening the menu
xs_wait 5 xs_no_popup || xs_fail "a window is still open"
icon_shot stopped
xs_choose Down "$position"
xs_confirm
xs_wait 15 server_runs || xs_fail "the server did not start"
server_pid=$(lock_pid)
xs_wait 5 eval '! icon_is stopped' || xs_fail "the icon did not change when the server started"
icon_shot running
kill -9 "$server_pid"
xs_wait 10 server_gone || xs_fail "the server did not end"
xs_wait 10 test -s "$work/notifications" || xs_fail "no notification"
xs_wait 5 icon_is stopped || xs_fail "the icon did not return to stopped"
xs_screenshot "$step-after"
echo "notifications recorded:"
sed 's/^/  /' "$work/notifications"
[[ $(cat "$work/notifications") == "Default Instance stopped | The server was killed by signal 9. | open-log" ]] ||
    xs_fail "unexpected notifications"
xs_wait 5 reaped || xs_fail "the killed server stays a zombie"

step=quit
xs_choose Up 1
xs_wait 10 monitor_gone || xs_fail "the monitor did not quit"
pid=$monitor_pid monitor_pid=
wait "$pid" || xs_fail "the monitor exited with status $?"
