#!/usr/bin/env bash
# Usage: gnome_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN
# The monitor on a copy of the demo installation with the stand-in server, under a headless
# GNOME Shell whose tray extension hosts its item; clicks go through the shell's own virtual
# pointer and what the shell shows is read through Eval (tests/e2e/gnome_e2e.js).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
monitor=$(realpath "$1")
# shellcheck source=xsession.sh
source "$here/xsession.sh"
xs_require gnome-shell gjs dbus-daemon /usr/bin/python3
tray=ubuntu-appindicators@ubuntu.com ext=corvanta-e2e@tests
[[ -d /usr/share/gnome-shell/extensions/$tray ]] || { echo "SKIP: no $tray"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-gnome.XXXXXX")
home=$work/installation lock=$work/installation/database/corvanta.lck
monitor_pid='' step=setup pids=()
finish() {
    local status=$?
    [[ -z $monitor_pid ]] || kill "$monitor_pid" 2>/dev/null || true
    [[ $(readlink "/proc/$(cat "$lock" 2>/dev/null)/exe") != "$home/bin/corvanta" ]] || kill -9 "$(cat "$lock")"
    ((${#pids[@]} == 0)) || { kill "${pids[@]}" && wait "${pids[@]}"; } 2>/dev/null || true
    ((status == 0)) && rm -rf "$work" || echo "FAILED at step '$step' (exit $status); logs in $work" >&2
}
trap finish EXIT
fail() { echo "FAIL ($step): $*" >&2 && exit 1; }
# Prints the value of JavaScript run in the shell; fails on an exception or a false or empty value.
js() {
    /usr/bin/python3 -c 'import json, sys; from gi.repository import Gio, GLib
ok, v = Gio.bus_get_sync(Gio.BusType.SESSION).call_sync("org.gnome.Shell", "/org/gnome/Shell",
    "org.gnome.Shell", "Eval", GLib.Variant("(s)", sys.argv[1:]), None, 0, 5000, None).unpack()
v = json.loads(v) if ok and v else v
ok and v != "" and not isinstance(v, bool) and print(v); sys.exit(not (ok and v))' "$1" 2>/dev/null
}
bus() { dbus-daemon --session --nofork --print-address=1 >"$work/$1.address" 2>>"$work/bus.log" & }
wakeups() { cat /proc/"$monitor_pid"/task/*/status | awk '/^voluntary_ctxt_switches/ {n += $2} END {print n}'; }
# The right button: two left clicks on the icon in a row would be a double click.
choose() { js 'e2e.click(null, 3)' && xs_wait 5 js 'e2e.isOpen()' && js "e2e.click(\"$1\")" && xs_wait 5 js '!e2e.isOpen()'; }

step=session
cp -R "$here/../../examples/installation" "$home"
cp "$2" "$home/bin/corvanta"
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$HOME" "$XDG_CONFIG_HOME/glib-2.0/settings" "$XDG_DATA_HOME/gnome-shell/extensions/$ext"
mkdir -m 700 "$XDG_RUNTIME_DIR"
cp "$here/gnome_e2e.js" "$XDG_DATA_HOME/gnome-shell/extensions/$ext/extension.js"
echo "{\"uuid\": \"$ext\", \"name\": \"$ext\", \"description\": \"e2e\", \"shell-version\": [\"43\"]}" \
    >"$XDG_DATA_HOME/gnome-shell/extensions/$ext/metadata.json"
printf "[org/gnome/shell]\nenabled-extensions=['%s', '%s']\n" "$tray" "$ext" >"$XDG_CONFIG_HOME/glib-2.0/settings/keyfile"
# An empty system bus: without one the shell waits for a login manager.
bus session && pids+=($!) && bus system && pids+=($!)
xs_wait 5 test -s "$work/session.address" -a -s "$work/system.address" || fail "no buses"
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/session.address") && export DBUS_SESSION_BUS_ADDRESS
DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$work/system.address") GSETTINGS_BACKEND=keyfile \
    gnome-shell --wayland --headless --no-x11 --virtual-monitor 1280x800 >"$work/shell.log" 2>&1 &
pids+=($!)
xs_wait 60 js 'Main.extensionManager.lookup("'$tray'")?.state === 1' || fail "no shell with $tray"

# The checks of the first start that shows the icon.
first_session() {
    step=first-click
    js 'e2e.click()' && xs_wait 5 js 'e2e.isOpen()' || fail "the menu did not open"
    expected="Start Instance 'analytics'
Start Default Instance
---
Open Diagnostic Messages [disabled]
Open Corvanta Kelvarine [disabled]
View Online Documentation
---
Start Corvanta Monitor at Login
Quit Corvanta Monitor"
    [[ $(js 'e2e.menu()') == "$expected" ]] || fail "the menu: $(js 'e2e.menu()')"
    js 'e2e.indicator().menu.close() ?? true' || fail "closing the menu"

    step=confirmation # one at a time; the item's round trip comes after the shell's click
    service=$(js 'e2e.indicator()._indicator.busName') || fail "no bus name"
    choose 'Start Default Instance' || fail "choosing an item"
    xs_wait 10 js 'e2e.dialogs().length === 1' || fail "no confirmation"
    choose "Start Instance 'analytics'" && "$here/sni_client.py" prop "$service" Title >/dev/null ||
        fail "choosing again"
    [[ $(js 'e2e.dialogs().length') == 1 ]] || fail "$(js 'e2e.dialogs().length') confirmations"
    js 'e2e.dialogs()[0].delete(global.get_current_time()) ?? true' || fail "closing it"
    xs_wait 10 js 'e2e.dialogs().length === 0' || fail "the confirmation stayed"
    [[ ! -e $lock ]] || fail "a cancelled start started the server"

    step=idle
    before=$(wakeups) && sleep 5 # a measurement over a fixed span, not a wait for a state
    woke=$(($(wakeups) - before)) && echo "$woke wake-ups in 5 s idle"
    ((woke <= 1)) || fail "the monitor polls ($woke wake-ups)"

    step=server-killed
    "$monitor" --home "$home" start database --wait >/dev/null || fail "start from a terminal"
    xs_wait 10 js 'e2e.menu().includes("Stop Default Instance")' || fail "the start is not shown"
    kill -9 "$(tr -dc 0-9 <"$lock")"
    xs_wait 10 js 'e2e.notifications().includes("Default Instance stopped |")' ||
        fail "not in the message tray: $(js 'e2e.notifications()')"
}

present=0
for cycle in 1 2 3 4 5 6 7 8 9 10; do
    step=cycle-$cycle shown=''
    env WAYLAND_DISPLAY=wayland-0 QT_QPA_PLATFORM=wayland LANGUAGE='' LC_ALL=C.UTF-8 \
        "$monitor" --home "$home" >>"$work/monitor.log" 2>&1 &
    monitor_pid=$!
    # Shown with its menu read, which a click needs, and still there to quit from.
    xs_wait 15 js 'e2e.ready()' && { ((present > 0)) || first_session; } &&
        step=quit-$cycle && choose 'Quit Corvanta Monitor' && shown=1 && present=$((present + 1))
    [[ $shown ]] || { echo "cycle $cycle: the icon was missing" >&2 && kill "$monitor_pid"; }
    xs_wait 10 eval '! kill -0 "$monitor_pid" 2>/dev/null' || fail "the monitor did not quit"
    wait "$monitor_pid" || { status=$? && [[ -z $shown ]] || fail "the monitor exited with status $status"; }
    monitor_pid=''
    xs_wait 10 js '!e2e.indicator()' || fail "the icon stayed"
done
echo "icon present in $present/10 cycles"
step=end
! grep -E 'Argument two may not be null|Impossible to get basic properties' "$work/shell.log" || fail "the shell's log"
((present == 10)) || fail "the icon was missing in $((10 - present)) cycles"
