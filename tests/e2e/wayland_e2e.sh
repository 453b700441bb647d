#!/usr/bin/env bash
# Usage: wayland_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN NOTIFICATION_RECORDER
# The monitor on a copy of the demo installation with the stand-in server, on Wayland in
# a bar's StatusNotifierItem tray on a headless compositor that starts after it, driven
# by pointer clicks and through the host's menu library; servers are also started, stopped
# and killed from a terminal. On failure (or with WL_KEEP=1) screenshots and logs stay.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
monitor=$(realpath "$1")
recorder=$(realpath "$3")
sni=$here/sni_client.py
# shellcheck source=wayland_session.sh
source "$here/wayland_session.sh"
xs_require /usr/bin/python3
/usr/bin/python3 -c 'import gi; gi.require_version("Dbusmenu", "0.4")' 2>/dev/null ||
    { echo "SKIP: the Dbusmenu 0.4 introspection data is not installed"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-wayland.XXXXXX")
home=$work/installation lock=$work/installation/database/corvanta.lck
monitor_pid='' step=setup
trap 'wl_finish $?' EXIT

# Menus and dialogs open below the bar; the cursor is parked outside that area.
below_bar() { wl_grab "0,64 800x704"; }
changed_since() { ! cmp -s "$1" <(below_bar); }
monitor_gone() { ! kill -0 "$monitor_pid" 2>/dev/null; }
# Voluntary context switches of all the monitor's threads: its wake-ups.
wakeups() { cat /proc/"$monitor_pid"/task/*/status | awk '/^voluntary_ctxt_switches/ {n += $2} END {print n}'; }
dialogs() { wl_windows | grep -c "'Corvanta Monitor'" || true; }
server_runs() { [[ -s $lock && $(readlink "/proc/$(tr -dc 0-9 <"$lock")/exe") == "$home/bin/corvanta" ]]; }
cli() { env HOME="$work/home" XDG_CONFIG_HOME="$work/config" "$monitor" --home "$home" "$@" >/dev/null; }
# A click on the item must open the bar's menu, and no window of the monitor's.
click_opens_menu() {
    wl_swaymsg seat - cursor set 1000 700 >/dev/null
    below_bar >"$work/closed.ppm"
    wl_click 12 16 "$1"
    xs_wait 5 changed_since "$work/closed.ppm" || wl_fail "nothing opened"
    wl_screenshot "$step"
    [[ $(wl_windows) == "" ]] || wl_fail "a window opened: $(wl_windows)"
}
dismiss() { wl_click 1000 700 left && xs_wait 5 eval '! changed_since "$work/closed.ppm"'; }
told() { cat "$work/notifications" 2>/dev/null | wc -l; }
layouts_announced() { grep -c 'member=LayoutUpdated' "$work/layouts" || true; }
# A server killed from outside is told at once, and the menu shows it stopped.
kill_is_told() {
    local before killed
    before=$(told) killed=$(date +%s.%N)
    kill -9 "$(tr -dc 0-9 <"$lock")"
    xs_wait 5 eval '(($(told) > before))' || wl_fail "the kill was not told"
    echo "told $(awk "BEGIN {printf \"%.3f\", $(date +%s.%N) - $killed}") s after the kill"
    [[ $(tail -n 1 "$work/notifications") == "Default Instance stopped | The server ended; its exit status is not known to Corvanta Monitor. | open-log | com.nordelix.CorvantaMonitor" ]] ||
        wl_fail "told: $(tail -n 1 "$work/notifications")"
    "$sni" wait-label "$service" '^Start Default Instance$' 5 || wl_fail "the end is not shown"
    rm "$lock"
}

step=session
wl_start || wl_fail "session"
wl_env
stdbuf -oL dbus-monitor --address "$wl_bus" --monitor \
    "type='signal',interface='com.canonical.dbusmenu',member='LayoutUpdated'" >"$work/layouts" &
wl_pids+=($!)
"$recorder" "$work/notifications" >"$work/recorder.out" 2>&1 &
wl_pids+=($!)
xs_wait 5 grep -qx ready "$work/recorder.out" || wl_fail "no notification server"
cp -R "$here/../../examples/installation" "$home"
cp "$2" "$home/bin/corvanta"
mkdir -p "$work/home" "$work/config"

step=late-host # as when both start with the session: the item moves to the bar
env HOME="$work/home" XDG_CONFIG_HOME="$work/config" LANGUAGE='' LC_ALL=C.UTF-8 \
    "$monitor" --home "$home" >"$work/monitor.log" 2>&1 &
monitor_pid=$!
xs_wait 10 grep -q "No system tray found" "$work/monitor.log" || wl_fail "no word of a missing tray"
wl_start_bar || wl_fail "the bar"
xs_wait 10 eval 'service=$("$sni" item 2>/dev/null)' || wl_fail "no item registered"
[[ $("$sni" prop "$service" Title) == "Corvanta Monitor" ]] || wl_fail "the title"
[[ $("$sni" prop "$service" ItemIsMenu) == true ]] || wl_fail "the item is no menu"
icon=$("$sni" prop "$service" IconThemePath)/$("$sni" prop "$service" IconName).svg
[[ $icon == */corvanta-monitor-stopped-symbolic.svg && -f $icon ]] || wl_fail "the icon name: $icon"
# Hosts may read and cache the menu as soon as the item is there, without asking first.
expected="Start Instance 'analytics'
Start Default Instance
---
Open Diagnostic Messages [disabled]
Open Corvanta Kelvarine [disabled]
View Online Documentation
---
Start Corvanta Monitor at Login [off]
Quit Corvanta Monitor"
[[ $("$sni" layout "$service") == "$expected" ]] || wl_fail "first layout: $("$sni" layout "$service")"
xs_wait 10 wl_item_drawn || wl_fail "the bar drew no item"

step=kill-unopened
cli start database --wait || wl_fail "start from a terminal"
"$sni" wait-label "$service" '^Stop Default Instance$' 5 || wl_fail "the start is not shown"
kill_is_told

step=right-click
click_opens_menu right

step=live # the bar's menu stays open while a terminal starts and stops the server
cli start database --wait || wl_fail "start from a terminal"
started=$(date +%s.%N)
"$sni" wait-label "$service" '^Stop Default Instance$' 5 || wl_fail "the start is not shown"
echo "the host's menu showed the start $(awk "BEGIN {printf \"%.3f\", $(date +%s.%N) - $started}") s later"
wl_screenshot menu-open-running
cli stop database --wait || wl_fail "stop from a terminal"
"$sni" wait-label "$service" '^Start Default Instance$' 5 || wl_fail "the stop is not shown"
(($(told) == 1)) || wl_fail "a clean stop was told"
step=kill-open
cli start database --wait || wl_fail "start from a terminal"
"$sni" wait-label "$service" '^Stop Default Instance$' 5 || wl_fail "the start is not shown"
kill_is_told
(($(layouts_announced) == 0)) || wl_fail "server changes announced a new layout"
dismiss || wl_fail "the menu stayed open"

step=idle # the bar never says that its menu closed; nothing may poll meanwhile
before=$(wakeups)
sleep 5 # a measurement over a fixed span, not a wait for a state
woke=$(($(wakeups) - before))
echo "$woke wake-ups in 5 s after the bar's menu was dismissed"
((woke <= 1)) || wl_fail "the monitor polls with the menu closed ($woke wake-ups)"

step=new-instance # the next opening shows it, announced by one new layout
mkdir "$home/zeta" && printf '[database]\n' >"$home/zeta/corvanta.ini"
click_opens_menu right
"$sni" wait-label "$service" "^Start Instance 'zeta'$" 5 || wl_fail "the new instance"
xs_wait 5 eval '(($(layouts_announced) > 0))' || wl_fail "no new layout announced"
"$sni" prop "$service" Title >/dev/null # a round trip: what it announces has been sent
(($(layouts_announced) == 1)) || wl_fail "$(layouts_announced) layouts announced for one change"
dismiss || wl_fail "the menu stayed open"

step=left-click # the same menu, at the icon
click_opens_menu left
dismiss || wl_fail "the menu stayed open"

step=confirmation # one at a time, whichever item is chosen meanwhile
"$sni" click "$service" '^Start Default Instance$' || wl_fail "click"
xs_wait 10 eval '(($(dialogs) == 1))' || wl_fail "no confirmation"
wl_screenshot confirmation
"$sni" click "$service" "^Start Instance 'analytics'$" || wl_fail "click"
"$sni" prop "$service" Title >/dev/null # a round trip: the click has been handled
(($(dialogs) == 1)) || wl_fail "$(dialogs) confirmations at once"
# Escape answers Cancel; a key sent before the dialog has the focus is lost, so it is
# sent again until the dialog is gone.
xs_wait 15 eval 'WAYLAND_DISPLAY=$wl_display wtype -k Escape 2>/dev/null; (($(dialogs) == 0))' ||
    wl_fail "the confirmation did not close"
! server_runs || wl_fail "a cancelled start started the server"

step=quit
"$sni" click "$service" '^Quit' || wl_fail "the Quit item did not take the click"
xs_wait 10 monitor_gone || wl_fail "the monitor did not quit"
pid=$monitor_pid && monitor_pid=''
wait "$pid" || wl_fail "the monitor exited with status $?"
