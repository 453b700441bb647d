#!/usr/bin/env bash
# End-to-end test in a real tray: a private Xvfb, the trayer tray host, the
# real monitor on a copy of the demo installation and the stand-in server.
# Everything is done through the mouse and keyboard with xdotool. On failure
# the screenshots stay in the directory printed last.
#
# Usage: tray_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN
# CORVANTA_E2E_KEEP=1 keeps the screenshots of a passing run too.
set -euo pipefail

monitor=$(realpath "$1")
standin=$(realpath "$2")
here=$(cd "$(dirname "$0")" && pwd)
installation=$here/../../examples/installation
for tool in Xvfb trayer xdotool xwininfo import; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-e2e.XXXXXX")
# shellcheck source=xsession.sh
source "$here/xsession.sh"

monitor_pid=
ok=0
step=start

# Stand-ins run in sessions of their own and outlive the monitor: find the
# ones working in this test's installation by their current directory.
kill_standins() {
    local proc pid
    for proc in /proc/[0-9]*; do
        pid=${proc#/proc/}
        [[ $(readlink "$proc/cwd" 2>/dev/null) == "$work"/* ]] || continue
        [[ $(readlink "$proc/exe" 2>/dev/null) == "$home/bin/corvanta" ]] || continue
        kill -9 "$pid" 2>/dev/null || true
    done
}

cleanup() {
    local status=$?
    [[ -n $monitor_pid ]] && kill "$monitor_pid" 2>/dev/null
    kill_standins
    xs_stop
    if ((ok)) && [[ -z ${CORVANTA_E2E_KEEP:-} ]]; then
        rm -rf "$work"
    elif ((ok)); then
        echo "passed; screenshots and logs in $work" >&2
    else
        echo "FAILED at step '$step' (exit $status); screenshots and logs in $work" >&2
        ls "$work/screenshots" 2>/dev/null >&2 || true
    fi
}
trap cleanup EXIT

fail() {
    xs_screenshot "failure-$step"
    echo "FAIL ($step): $*" >&2
    exit 1
}

# A live process whose id the lock file holds.
lock_pid() { tr -dc 0-9 2>/dev/null <"$1" | head -c 10; }
server_runs() {
    local pid
    pid=$(lock_pid "$lock") && [[ -n $pid ]] && kill -0 "$pid" 2>/dev/null &&
        [[ $(readlink "/proc/$pid/exe") == "$home/bin/corvanta" ]]
}
server_gone() { ! kill -0 "$server_pid" 2>/dev/null || [[ $(ps -o stat= -p "$server_pid") == Z* ]]; }

# Chooses the menu's item `n` places from the top (Down) or bottom (Up);
# disabled items and separators are skipped by the menu itself.
choose() {
    local key=$1 n=$2
    xs_open_menu || fail "menu"
    xs_screenshot "$step-menu"
    for ((i = 0; i < n; i++)); do xdotool key "$key"; done
    xdotool key Return
}

confirm_dialog() {
    xs_wait 5 xs_has_popup || fail "no confirmation dialog"
    sleep 0.3
    xs_screenshot "$step-dialog"
    xdotool key Return  # the first, default button: Start or Stop
}

# --- the installation, the session and the monitor -------------------------
home=$work/installation
cp -R "$installation" "$home"
cp "$standin" "$home/bin/corvanta"
lock=$home/database/corvanta.lck
mkdir -p "$work/fakebin" "$work/config" "$work/home" "$work/runtime"
chmod 700 "$work/runtime"
# Without a desktop session the desktop services hand URLs to xdg-open.
cat >"$work/fakebin/xdg-open" <<SCRIPT
#!/bin/sh
printf '%s\n' "\$@" >>"$work/opened"
SCRIPT
chmod +x "$work/fakebin/xdg-open"

# The menu lists the instances in the order of their directories' paths.
mapfile -t instances < <(cd "$home" && for d in */; do
    [[ -f $d/corvanta.ini ]] && echo "${d%/}"; done | LC_ALL=C sort)
count=${#instances[@]}
position=0
for i in "${!instances[@]}"; do [[ ${instances[$i]} == database ]] && position=$((i + 1)); done
((position > 0)) || fail "the demo installation has no default instance"

step=session
xs_start || fail "X session"
env PATH="$work/fakebin:$PATH" HOME="$work/home" XDG_CONFIG_HOME="$work/config" \
    XDG_RUNTIME_DIR="$work/runtime" CORVANTA_HOME="$home" LANGUAGE= LC_ALL=C.UTF-8 \
    "$monitor" >"$work/monitor.log" 2>&1 &
monitor_pid=$!
xs_wait 10 xs_tray_icon >/dev/null || fail "the tray icon did not appear"
xs_screenshot "tray"

# A second launch leaves the first alone and says why on one line.
step=second-launch
second=$(env HOME="$work/home" XDG_RUNTIME_DIR="$work/runtime" CORVANTA_HOME="$home" \
    timeout 10 "$monitor" 2>&1 >/dev/null) || fail "second launch failed: $second"
[[ $(wc -l <<<"$second") -eq 1 && -n $second ]] || fail "second launch said: $second"
kill -0 "$monitor_pid" || fail "the first monitor died"

# --- start the default instance ---------------------------------------------
step=start
choose Down "$position"
confirm_dialog
xs_wait 15 server_runs || fail "the server did not start"
server_pid=$(lock_pid "$lock")
echo "started: pid $server_pid"

# --- the web console opens in the browser -----------------------------------
# Below the instances: the diagnostic log, then the console.
step=console
choose Down $((count + 2))
xs_wait 5 grep -q . "$work/opened" || fail "nothing was opened"
[[ $(cat "$work/opened") == "http://localhost:8890/kelvarine/" ]] ||
    fail "opened $(cat "$work/opened")"
echo "opened: $(cat "$work/opened")"

# --- start at login on and off ----------------------------------------------
# From the bottom: quit, then the login item.
step=login-on
entry=$work/config/autostart/corvanta-monitor.desktop
choose Up 2
xs_wait 5 test -f "$entry" || fail "no autostart entry"
grep -qx "Exec=\"$monitor\"" "$entry" || fail "autostart entry: $(cat "$entry")"
step=login-off
choose Up 2
xs_wait 5 test ! -e "$entry" || fail "the autostart entry stayed"

# --- stop it ------------------------------------------------------------------
step=stop
choose Down "$position"
confirm_dialog
xs_wait 15 server_gone || fail "the server did not stop"
[[ ! -e $lock ]] || fail "the lock file stayed"
echo "stopped"

# --- quit -----------------------------------------------------------------------
step=quit
choose Up 1
status=0
xs_wait 10 eval '! kill -0 "$monitor_pid" 2>/dev/null' || fail "the monitor did not quit"
wait "$monitor_pid" || status=$?
monitor_pid=
((status == 0)) || fail "the monitor exited with status $status"
echo "quit with status 0"
ok=1
