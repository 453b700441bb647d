#!/usr/bin/env bash
# Usage: wayland_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN
# The monitor on a copy of the demo installation with the stand-in server, on Wayland in
# a bar's StatusNotifierItem tray on a headless compositor, driven by pointer clicks and
# through the host's menu library. Prints what the host sees; on failure (or with
# WL_KEEP=1) its screenshots and logs stay.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
monitor=$(realpath "$1")
standin=$(realpath "$2")
sni=$here/sni_client.py
# shellcheck source=wayland_session.sh
source "$here/wayland_session.sh"
wl_require /usr/bin/python3 dbus-monitor
/usr/bin/python3 -c 'import gi; gi.require_version("Dbusmenu", "0.4")' 2>/dev/null ||
    { echo "SKIP: the Dbusmenu 0.4 introspection data is not installed"; exit 77; }
[[ -x $monitor ]] || { echo "no monitor at $monitor" >&2; exit 1; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-wayland.XXXXXX")
home=$work/installation
monitor_pid='' step=setup
trap 'wl_finish $?' EXIT

# Where menus and dialogs open, less the corners the cursor sits in: the tray item's
# (the cursor is drawn into the output) and the spot where clicks dismiss.
below_bar() { wl_grab "0,64 800x704"; }
changed_since() { ! cmp -s "$1" <(below_bar); }
same_as() { cmp -s "$1" <(below_bar); }
registered() { [[ -n $("$sni" items 2>/dev/null) ]]; }
item_drawn() { [[ -n $(wl_tray_item_rect) ]]; }
monitor_gone() { ! kill -0 "$monitor_pid" 2>/dev/null; }
owner_pid() {
    dbus-send --print-reply=literal --dest=org.freedesktop.DBus / \
        org.freedesktop.DBus.GetConnectionUnixProcessID "string:$1" 2>/dev/null | awk '{print $2}'
}
# Runs a click and reports what it brought up, waiting a bounded time for any change;
# with `must`, that something opens is required.
record_click() {
    local name=$1 before=$work/before-$1.ppm
    wl_swaymsg seat - cursor set 1000 700 >/dev/null
    below_bar >"$before"
    wl_click_tray_item "$2" || wl_fail "the click did not go through"
    if wl_wait 5 changed_since "$before"; then
        echo "== $name: something opened under the bar"
    else
        echo "== $name: nothing changed under the bar within 5 s"
        [[ ${3:-} != must ]] || wl_fail "nothing opened"
    fi
    wl_screenshot "$name"
    echo "windows:" && wl_windows | sed 's/^/  /'
}
# Closes whatever the click opened by clicking the empty desktop, as a user would.
dismiss() {
    changed_since "$work/before-$1.ppm" || return 0
    wl_click 1000 700 left
    wl_wait 5 same_as "$work/before-$1.ppm" || echo "== $1: still open after a click elsewhere"
}

# The method calls to `service` (by its name or its owner's) in dbus-monitor's log, one line each: caller, member and
# the first two arguments (the item and the event's name, for events).
calls_to() {
    awk -v svc="$1" -v unique="$2" -v bar="$3" '
        function flush() { if (call != "") print call; call = "" }
        /^method call/ {
            flush()
            if (index($0, "destination=" svc " ") || index($0, "destination=" unique " ")) {
                match($0, /member=[A-Za-z]+/); member = substr($0, RSTART + 7, RLENGTH - 7)
                match($0, /sender=[^ ]+/); sender = substr($0, RSTART + 7, RLENGTH - 7)
                call = (sender == bar ? "bar" : sender) " " member; args = 0
            }
            next
        }
        /^(signal|method return|error)/ { flush(); next }
        call != "" && args < 2 { gsub(/^ +/, ""); call = call " " $0; args++ }
        END { flush() }'
}

# Voluntary context switches of all the monitor's threads: its wake-ups.
wakeups() { cat /proc/"$monitor_pid"/task/*/status | awk '/^voluntary_ctxt_switches/ {n += $2} END {print n}'; }
dialogs() { wl_windows | grep -c $'\t'"'Corvanta Monitor'"$'\t' || true; }
lock=$home/database/corvanta.lck
server_runs() { [[ -s $lock && $(readlink "/proc/$(tr -dc 0-9 <"$lock")/exe") == "$home/bin/corvanta" ]]; }
cli() { env HOME="$work/home" XDG_CONFIG_HOME="$work/config" "$monitor" --home "$home" "$@"; }

step=session
wl_start || wl_fail "session"
wl_env >"$work/client.env"
wl_record_bus || wl_fail "no bus monitor"
bar=$(dbus-send --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetNameOwner string:org.kde.StatusNotifierWatcher | tr -d ' ')
cp -R "$here/../../examples/installation" "$home"
cp "$standin" "$home/bin/corvanta"
mkdir -p "$work/home" "$work/config"

step=launch
env HOME="$work/home" XDG_CONFIG_HOME="$work/config" LANGUAGE='' LC_ALL=C.UTF-8 \
    "$monitor" --home "$home" >"$work/monitor.log" 2>&1 &
monitor_pid=$!
wl_wait 10 registered || wl_fail "no item registered"
entry=$("$sni" items)
echo "registered: $entry"
[[ $entry != *$'\n'* ]] || wl_fail "more than one item: $entry"
service=${entry%%/*} path=/StatusNotifierItem
[[ $entry != */* ]] || path=/${entry#*/}
[[ $(owner_pid "$service") == "$monitor_pid" ]] || wl_fail "$service is not the monitor's"
unique=$(dbus-send --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetNameOwner "string:$service" | tr -d ' ')

step=props
"$sni" props "$service" "$path" | tee "$work/props" | sed 's/^/  /'
grep -qx 'Title=Corvanta Monitor' "$work/props" || wl_fail "the title"
grep -qx 'ItemIsMenu=true' "$work/props" || wl_fail "the item is no menu"
grep -qx 'IconName=corvanta-monitor-stopped' "$work/props" || wl_fail "the themed icon name"
menu=$(sed -n 's/^Menu=//p' "$work/props")
[[ $menu == /* ]] || wl_fail "the item has no menu"
# Before any click: the layout a host caches at registration must be complete.
"$sni" layout "$service" "$menu" | tee "$work/layout" | sed 's/^/  /'
grep -q $'label=Start Default Instance\tenabled=true' "$work/layout" || wl_fail "first layout"
grep -q $'label=Quit Corvanta Monitor\tenabled=true' "$work/layout" || wl_fail "first layout"
wl_wait 10 item_drawn || wl_fail "the bar drew no item"
echo "drawn at: $(wl_tray_item_rect)"
wl_screenshot registered

step=right-click # the bar's own menu, and no window of the monitor's
record_click right-click right must
[[ $(wl_windows) == "" ]] || wl_fail "a window opened: $(wl_windows)"

step=live # the bar's menu stays open while a terminal starts and stops the server
cli start database --wait >/dev/null || wl_fail "start from a terminal"
started=$(date +%s.%N)
"$sni" wait-label "$service" "$menu" '^Stop Default Instance$' 5 >/dev/null ||
    wl_fail "the menu did not show the started server"
echo "the host's menu library saw the start $(awk "BEGIN {printf \"%.3f\", $(date +%s.%N) - $started}") s after it finished"
wl_screenshot menu-open-running
cli stop database --wait >/dev/null || wl_fail "stop from a terminal"
"$sni" wait-label "$service" "$menu" '^Start Default Instance$' 5 >/dev/null ||
    wl_fail "the menu did not show the stopped server"
dismiss right-click

step=idle # the bar never says that its menu closed; nothing may poll meanwhile
before=$(wakeups)
"$sni" count-signals "$service" 5 | tee "$work/signals" | sed 's/^/  /'
woke=$(($(wakeups) - before))
echo "$woke wake-ups in 5 s after the bar's menu was dismissed"
((woke <= 1)) || wl_fail "the monitor polls with the menu closed ($woke wake-ups)"
grep -qx 'LayoutUpdated 0' "$work/signals" || wl_fail "layout announced while idle"

step=left-click # the same menu, at the icon
record_click left-click left must
[[ $(wl_windows) == "" ]] || wl_fail "a window opened: $(wl_windows)"
dismiss left-click

step=confirmation # one at a time, whichever item is chosen meanwhile
"$sni" click "$service" "$menu" '^Start Default Instance$' >/dev/null || wl_fail "click"
wl_wait 10 eval '(($(dialogs) == 1))' || wl_fail "no confirmation"
wl_screenshot confirmation
"$sni" click "$service" "$menu" "^Start Instance 'analytics'$" >/dev/null || wl_fail "click"
"$sni" layout "$service" "$menu" >/dev/null # a round trip: the click has been handled
(($(dialogs) == 1)) || wl_fail "$(dialogs) confirmations at once"
# Escape answers Cancel; a key sent before the dialog has the focus is lost, so it is
# sent again until the dialog is gone.
wl_wait 15 eval 'WAYLAND_DISPLAY=$wl_display wtype -k Escape 2>/dev/null; (($(dialogs) == 0))' ||
    wl_fail "the confirmation did not close"
! server_runs || wl_fail "a cancelled start started the server"

step=quit
"$sni" click "$service" "$menu" '^Quit' >/dev/null || wl_fail "the Quit item did not take the click"
wl_wait 10 monitor_gone || wl_fail "the monitor did not quit"
pid=$monitor_pid && monitor_pid=''
wait "$pid" || wl_fail "the monitor exited with status $?"
wl_wait 5 eval '! registered' || wl_fail "the item stayed registered"
echo "calls to the item during the run (the bar's marked 'bar'; the others are the test's):"
calls_to "$service" "$unique" "$bar" <"$work/bus-monitor.log" | uniq -c
