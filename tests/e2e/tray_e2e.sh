#!/usr/bin/env bash
# Usage: tray_e2e.sh xembed|wayland|gnome CORVANTA_MONITOR CORVANTA_STANDIN NOTIFICATION_RECORDER
# The monitor on a copy of the demo installation with the stand-in server, in a tray host
# driven through a small adapter. On failure (or with E2E_KEEP=1) the screenshots and logs stay.
# shellcheck disable=SC2016,SC2034 # the conditions that xs_wait evaluates read the callers' locals
set -euo pipefail
host=$1 here=$(cd "$(dirname "$0")" && pwd)
monitor=$(realpath "$2") standin=$(realpath "$3") recorder=$(realpath "$4")
# shellcheck source=xsession.sh
source "$here/xsession.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-$host.XXXXXX")
home=$work/installation lock=$work/installation/database/corvanta.lck sni=$here/sni_client.py
monitor_pid='' step=setup pids=() notices=() cycles=1 sni_host=1 service='' ipc=''
tail=' | open-log | com.nordelix.CorvantaMonitor' # the action and desktop entry of every notice
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_RUNTIME_DIR=$work/runtime

finish() {
    local status=$? i
    ((status != 77)) || status=0 # skipped
    ! server_runs || kill -9 "$(lock_pid)" # stand-ins outlive the monitor
    [[ -z $monitor_pid ]] || kill "$monitor_pid" 2>/dev/null || true
    ((status == 0)) || screenshot "exit-$step"
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null || true; done
    xs_stop && wait 2>/dev/null || true
    ((status == 0)) && [[ -z ${E2E_KEEP:-} ]] && rm -rf "$work" && return
    ((status == 0)) || echo "FAILED at step '$step' (exit $status)" >&2
    echo "logs and screenshots in $work" >&2
}
trap finish EXIT
fail() { echo "FAIL ($step): $*" >&2 && exit 1; }
lock_pid() { tr -dc 0-9 2>/dev/null <"$lock" | head -c 10; }
server_runs() { [[ -s $lock && $(readlink "/proc/$(lock_pid)/exe") == "$home/bin/corvanta" ]]; }
reaped() { [[ ! -e /proc/$server_pid ]]; } # not even a zombie
monitor_cmd=(env PATH="$work/fakebin:$PATH" LANGUAGE='' LC_ALL=C.UTF-8 "$monitor" --home "$home")
run() { "${monitor_cmd[@]}" "$@"; }
spawn() { "$@" & pids+=($!); }
# No timer due within 10 s in any of the monitor's threads: each blocked in poll(2) with no
# timeout or a longer one (Qt's pixmap cache and D-Bus replies keep such timers), or in a futex
# wait with no deadline. Syscall numbers of x86-64.
idle() {
    local task call busy=0
    for task in /proc/"$monitor_pid"/task/*; do
        read -r -a call <"$task/syscall" && echo "${call[*]::5}"
        ((call[0] == 7 && (call[3] == 0xffffffff || call[3] >= 10000) || call[0] == 202 && call[4] == 0)) ||
            busy=1
    done >"$work/syscalls"
    ((!busy))
}
layouts() { grep -c 'member=LayoutUpdated' "$work/layouts" || true; }
activate() { gdbus call --session -d "$service" -o /StatusNotifierItem -m org.kde.StatusNotifierItem.Activate 0 0; }
# A private bus that the host's unprivileged user may join too, with the extra configuration given.
bus() {
    printf '<busconfig><type>session</type><listen>unix:path=%s</listen><auth>EXTERNAL</auth>%s
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/>
<allow receive_sender="*"/></policy></busconfig>\n' "$work/$1" "${2:-}" >"$work/$1.conf"
    spawn dbus-daemon --config-file="$work/$1.conf" --nofork 2>>"$work/bus.log"
    xs_wait 5 test -S "$work/$1" || fail "no $1 bus"
}
# Answers the confirmation with a key until it is gone: a key sent before it has the focus is lost.
close() {
    local key=$1
    xs_wait 15 eval '(($(dialogs) > 0))' && xs_wait 15 eval 'answer "$key"; (($(dialogs) == 0))'
}
# What the desktop was told so far, exactly, with the body given (if any) as the latest.
told() {
    [[ -z $1 ]] || notices+=("Default Instance stopped | $1$tail")
    local want && want=$(printf '%s\n' "${notices[@]}")
    xs_wait 5 eval '[[ $(notifications) == "$want" ]]' || fail "told: $(notifications)"
}
kill_is_told() {
    kill -9 "$(lock_pid)"
    told "$1"
    shows "Start Default Instance" || fail "the end is not shown"
    rm "$lock" # left by the killed server
}
cli_start() { run start database --wait >/dev/null && shows "Stop Default Instance" || fail "start not shown"; }
cli_killed() { cli_start && kill_is_told "The server ended; its exit status is not known to Corvanta Monitor."; }
start_from_menu() {
    choose "Start Default Instance" && close Return || fail "the start was not confirmed"
    xs_wait 15 server_runs || fail "the server did not start"
    server_pid=$(lock_pid)
    shows "Stop Default Instance" || fail "the start is not shown"
}

# Each adapter: host_start, after_launch, shown (the icon), click BUTTON (opens the host's menu),
# dismiss, choose LABEL, dialogs (their count), answer KEY, shows LABEL, notifications, screenshot.
after_launch() { :; }
notifications() { cat "$work/notifications" 2>/dev/null || true; } # the recorder's lines
screenshot() { :; }
case $host in
xembed)
    sni_host=''
    host_start() { xs_require Xvfb trayer xdotool import compare && xs_start || fail "X session"; }
    shown() { xs_tray_icon >/dev/null; }
    click() { xs_open_menu "$1"; }
    dismiss() { xdotool key Escape && xs_wait 5 xs_no_popup; }
    # From the keyboard: the instances from the top (in their directories' order), the rest
    # from the bottom; the console comes two below the instances.
    choose() {
        local name=${1#*\'} key=Down n
        case $1 in
        Quit*) key=Up n=1 ;; *Login) key=Up n=2 ;;
        Open\ Corvanta*) n=$(($(wc -l <<<"$instances") + 2)) ;;
        *Default*) n=$(grep -nx database <<<"$instances" | cut -d: -f1) ;;
        *) n=$(grep -nx "${name%\'}" <<<"$instances" | cut -d: -f1) ;;
        esac
        click 1 && xs_screenshot "$step-menu" && xdotool key --repeat "$n" "$key" && xdotool key Return
    }
    dialogs() { xdotool search --maxdepth 1 --onlyvisible --name '^Corvanta Monitor$' 2>/dev/null | wc -l; }
    answer() {
        xdotool search --maxdepth 1 --onlyvisible --class '^corvanta-monitor$' 2>/dev/null |
            grep -qx "$(xdotool getwindowfocus 2>/dev/null)" && xdotool key "$1"
    }
    # The icon's pixels against those captured while stopped.
    stopped_icon() {
        import -window "$(xs_tray_icon)" "$work/icon-now.png" 2>/dev/null &&
            [[ $(compare -metric AE "$work/icon-stopped.png" "$work/icon-now.png" null: 2>&1) == 0 ]]
    }
    shows() { case $1 in Stop*) xs_wait 5 eval '! stopped_icon' ;; *) xs_wait 5 stopped_icon ;; esac; }
    screenshot() { xs_screenshot "$1"; }
    ;;
wayland)
    # The compositor and the bar refuse root or belong to the host side: as root they run as
    # an unprivileged user. The bar is only a tray, unstyled, in a colour no icon is made of.
    host_start() {
        xs_require sway swaymsg waybar grim wtype setpriv python3 od gdbus
        mkdir -m 700 "$work/host" && chmod 711 "$work"
        as_host=(env -i PATH=/usr/bin:/bin HOME="$work/host" XDG_RUNTIME_DIR="$work/host" LANG=C.UTF-8)
        ((EUID)) || as_host=(setpriv --reuid=65534 --regid=65534 --clear-groups "${as_host[@]}")
        ((EUID)) || chown 65534:65534 "$work/host"
        printf 'xwayland disable\nswaynag_command -\noutput HEADLESS-1 resolution 1024x768\n' >"$work/sway.conf"
        spawn "${as_host[@]}" WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 sway -c "$work/sway.conf" \
            >"$work/sway.log" 2>&1
        xs_wait 10 eval 'ipc=$(compgen -G "$work/host/sway-ipc.*.sock")' && xs_wait 10 sw -t get_outputs &&
            xs_wait 5 eval 'WAYLAND_DISPLAY=$(compgen -G "$work/host/wayland-[0-9]")' || fail "sway"
        export WAYLAND_DISPLAY QT_QPA_PLATFORM=wayland
        # A virtual pointer gives the seat the pointer that sway's cursor commands need.
        spawn "${as_host[@]}" python3 -c "$vpointer" "$WAYLAND_DISPLAY" >"$work/vpointer.log" 2>&1
        xs_wait 5 eval 'swaymsg -s "$ipc" -t get_seats | grep -q "\"type\": \"pointer\""' || fail "no pointer"
        echo '{"height": 32, "modules-left": ["tray"], "tray": {"icon-size": 24, "spacing": 8}}' \
            >"$work/waybar.json"
        echo 'window#waybar * { all: unset; } window#waybar { background: #ff00ff; }' >"$work/waybar.css"
    }
    # As when both start with the session: the item moves to the bar that comes later.
    after_launch() {
        xs_wait 10 grep -q "No system tray found" "$work/monitor.log" || fail "no word of a missing tray"
        spawn "${as_host[@]}" WAYLAND_DISPLAY="$WAYLAND_DISPLAY" \
            DBUS_SESSION_BUS_ADDRESS="$DBUS_SESSION_BUS_ADDRESS" waybar -l debug -c "$work/waybar.json" \
            -s "$work/waybar.css" >"$work/waybar.log" 2>&1
    }
    sw() { swaymsg -s "$ipc" "$@" >/dev/null 2>&1; }
    pixels() { grim -t ppm -g "$1 $2" - 2>/dev/null | tail -c $((${2%x*} * ${2#*x} * 3)) | od -An -v -tx1 |
        tr -d ' \n'; }
    # The bar drawn, and something in the tray's first slot.
    shown() { [[ $(pixels 1000,0 1x1) == ff00ff && ! $(pixels 0,4 24x24) =~ ^(ff00ff)+$ ]]; }
    # Menus open below the bar (seen only in screenshots); the cursor parks outside that area.
    below() { grim -t ppm -g "0,64 800x704" - 2>/dev/null; }
    press() { sw seat - cursor set "$1" "$2" && sw seat - cursor press "button$3" &&
        sw seat - cursor release "button$3"; }
    click() {
        sw seat - cursor set 1000 700 && below >"$work/closed.ppm" && press 12 16 "$1" &&
            xs_wait 5 eval '! cmp -s "$work/closed.ppm" <(below)'
    }
    dismiss() { press 1000 700 1 && xs_wait 5 eval 'cmp -s "$work/closed.ppm" <(below)'; }
    choose() { "$sni" click "$service" "$1"; }
    dialogs() { swaymsg -s "$ipc" -t get_tree | grep -c '"pid":' || true; }
    answer() { wtype -k "$1" 2>/dev/null; }
    shows() { "$sni" find "$service" "$1"; }
    screenshot() { grim "$work/$1.png" 2>/dev/null || true; }
    read -r -d '' vpointer <<'EOF' || true
import re, socket, struct, sys
sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
sock.connect(sys.argv[1])
def send(obj, op, body=b''):
    sock.sendall(struct.pack('=II', obj, (8 + len(body)) << 16 | op) + body)
iface = b'zwlr_virtual_pointer_manager_v1\0'
send(1, 1, struct.pack('=I', 2))  # wl_display.get_registry -> 2
buf, name = b'', None
while not name:  # the global's event: its name, then the interface as a string
    buf += sock.recv(4096) or sys.exit('no virtual pointer manager')
    name = re.search(rb'(.{4})' + struct.pack('=I', len(iface)) + iface, buf, re.S)
send(2, 0, name[1] + struct.pack('=I', len(iface)) + iface + b'\0' * (-len(iface) % 4) +
     struct.pack('=II', 1, 3))  # wl_registry.bind -> 3
send(3, 0, struct.pack('=II', 0, 4))  # create_virtual_pointer(default seat) -> 4
while sock.recv(4096):
    pass
EOF
    ;;
gnome)
    cycles=10 tail='' # the message tray shows title and body
    services='<standard_session_servicedirs/>' # the shell's notification service is activated
    tray=ubuntu-appindicators@ubuntu.com ext=corvanta-e2e@tests
    # Prints the value of JavaScript run in the shell; fails on an exception or a false or empty value.
    js() {
        /usr/bin/python3 -c 'import json, sys; from gi.repository import Gio, GLib
ok, v = Gio.bus_get_sync(Gio.BusType.SESSION).call_sync("org.gnome.Shell", "/org/gnome/Shell",
    "org.gnome.Shell", "Eval", GLib.Variant("(s)", sys.argv[1:]), None, 0, 5000, None).unpack()
v = json.loads(v) if ok and v else v
ok and v != "" and not isinstance(v, bool) and print(v); sys.exit(not (ok and v))' "$1" 2>/dev/null
    }
    host_start() {
        xs_require gnome-shell gjs gdbus
        [[ -d /usr/share/gnome-shell/extensions/$tray ]] || { echo "SKIP: no $tray" && exit 77; }
        export XDG_DATA_HOME=$work/data
        mkdir -p "$XDG_CONFIG_HOME/glib-2.0/settings" "$XDG_DATA_HOME/gnome-shell/extensions/$ext"
        cp "$here/gnome_e2e.js" "$XDG_DATA_HOME/gnome-shell/extensions/$ext/extension.js"
        echo "{\"uuid\": \"$ext\", \"name\": \"$ext\", \"description\": \"e2e\", \"shell-version\": [\"43\"]}" \
            >"$XDG_DATA_HOME/gnome-shell/extensions/$ext/metadata.json"
        printf "[org/gnome/shell]\nenabled-extensions=['%s', '%s']\n" "$tray" "$ext" \
            >"$XDG_CONFIG_HOME/glib-2.0/settings/keyfile"
        bus system # empty: without one the shell waits for a login manager
        spawn env DBUS_SYSTEM_BUS_ADDRESS="unix:path=$work/system" GSETTINGS_BACKEND=keyfile \
            gnome-shell --wayland --headless --no-x11 --virtual-monitor 1280x800 >"$work/shell.log" 2>&1
        xs_wait 60 js "Main.extensionManager.lookup('$tray')?.state === 1" || fail "no shell with $tray"
        export WAYLAND_DISPLAY=wayland-0 QT_QPA_PLATFORM=wayland
    }
    shown() { js 'e2e.ready()' >/dev/null; }
    click() { js "e2e.click(null, $1)" && xs_wait 5 js 'e2e.isOpen()'; }
    dismiss() { js 'e2e.indicator().menu.close() ?? true' && xs_wait 5 js '!e2e.isOpen()'; }
    # The right button: two left clicks on the icon in a row would be a double click. The items
    # may come a moment after the menu opens.
    choose() { click 3 && xs_wait 5 js "e2e.click(\"$1\")" && xs_wait 5 js '!e2e.isOpen()'; }
    dialogs() { js 'String(e2e.dialogs().length)' || echo -1; }
    answer() { js "e2e.key('$1')"; }
    shows() { xs_wait 10 js "e2e.menu().split('\n').includes(\"$1\")"; }
    notifications() { js 'e2e.notifications()' || true; }
    ;;
*) fail "no adapter for the host '$host'" ;;
esac

step=session
xs_require dbus-daemon dbus-monitor stdbuf
[[ -z $sni_host ]] || /usr/bin/python3 -c 'import gi; gi.require_version("Dbusmenu", "0.4")' 2>/dev/null ||
    { echo "SKIP: the Dbusmenu 0.4 introspection data is not installed" && exit 77; }
cp -R "$here/../../examples/installation" "$home"
cp "$standin" "$home/bin/corvanta"
# The menu lists the instances in the order of their directories' paths.
instances=$(cd "$home" && printf '%s\n' */corvanta.ini | LC_ALL=C sort | cut -d/ -f1)
mkdir -p "$work/fakebin" "$HOME" "$XDG_CONFIG_HOME" && mkdir -m 700 "$XDG_RUNTIME_DIR"
# Without a desktop session the monitor hands URLs to xdg-open.
printf '#!/bin/sh\nprintf "%%s\\n" "$@" >>"%s/opened"\n' "$work" >"$work/fakebin/xdg-open"
chmod +x "$work/fakebin/xdg-open"
bus session "${services:-}"
export DBUS_SESSION_BUS_ADDRESS=unix:path=$work/session
host_start
if [[ $host != gnome ]]; then # the shell is the notification server there
    spawn "$recorder" "$work/notifications" >"$work/recorder.out" 2>&1
    xs_wait 5 grep -qsx ready "$work/recorder.out" || fail "no notification server"
fi
[[ -z $sni_host ]] || spawn stdbuf -oL dbus-monitor --monitor \
    "type='signal',interface='com.canonical.dbusmenu',member='LayoutUpdated'" >"$work/layouts"
expected="Start Instance 'analytics'
Start Default Instance
---
Open Diagnostic Messages [disabled]
Open Corvanta Kelvarine [disabled]
View Online Documentation
---
Start Corvanta Monitor at Login [off]
Quit Corvanta Monitor"

scenario() {
    if [[ $sni_host ]]; then
        step=item
        xs_wait 10 eval 'service=$("$sni" item 2>/dev/null)' || fail "no item registered"
        mapfile -t item < <("$sni" prop "$service" Title ItemIsMenu IconThemePath IconName)
        [[ ${item[*]::2} == "Corvanta Monitor True" && ${item[3]} == corvanta-monitor-stopped-symbolic &&
            -f ${item[2]}/${item[3]}.svg ]] || fail "the item: ${item[*]}"
        # Hosts may read and cache the menu as soon as the item is there, without asking first.
        [[ $("$sni" layout "$service") == "$expected" ]] || fail "first layout: $("$sni" layout "$service")"
        # Hosts that ignore that the item is a menu call Activate: refused, so they show theirs.
        ! activate >/dev/null 2>&1 || fail "Activate was taken with no confirmation up"
    fi

    step=unopened # started and killed from a terminal before any opening of the menu
    [[ $sni_host ]] || import -window "$(xs_tray_icon)" "$work/icon-stopped.png"
    cli_killed

    step=clicks # left and right: the host's menu at the icon, complete from the first click
    for button in 1 3; do
        click $button && (($(dialogs) == 0)) || fail "button $button opened no menu, or a window"
        [[ $host != gnome || $(js 'e2e.menu()') == "$("$sni" layout "$service" | sed 's/ \[off\]$//')" ]] ||
            fail "the shell's menu: $(js 'e2e.menu()')"
        dismiss || fail "the menu stayed open"
    done
    step=idle # hosts need not say that their menu closed; no timer may run meanwhile
    [[ $(uname -m) != x86_64 ]] || xs_wait 10 idle || fail "a timer runs with the menu closed: $(<"$work/syscalls")"

    step=confirmation # one at a time, whichever item is chosen meanwhile; cancel starts nothing
    choose "Start Default Instance" || fail "choosing an item"
    xs_wait 10 eval '(($(dialogs) == 1))' || fail "no confirmation"
    if [[ $sni_host ]]; then
        choose "Start Instance 'analytics'" || fail "choosing again"
        activate >/dev/null || fail "Activate was refused with a confirmation up"
        "$sni" prop "$service" Title >/dev/null # a round trip: what was sent has been handled
        (($(dialogs) == 1)) || fail "$(dialogs) confirmations at once"
    fi
    close Escape || fail "the confirmation did not close"
    ! server_runs || fail "a cancelled start started the server"

    step=start
    start_from_menu

    step=console # the console's page, through the desktop's URL handler
    choose "Open Corvanta Kelvarine" || fail "choosing the console"
    xs_wait 5 eval '[[ $(cat "$work/opened" 2>/dev/null) == http://localhost:8890/kelvarine/ ]]' ||
        fail "opened: $(cat "$work/opened")"

    step=login # on, then off again
    local entry=$XDG_CONFIG_HOME/autostart/corvanta-monitor.desktop
    choose "Start Corvanta Monitor at Login" && xs_wait 5 test -f "$entry" || fail "no autostart entry"
    grep -qxF "Exec=$monitor --home $home" "$entry" || fail "autostart entry: $(cat "$entry")"
    choose "Start Corvanta Monitor at Login" && xs_wait 5 test ! -e "$entry" || fail "the autostart entry stayed"

    step=stop # a clean stop, reaped and not told
    choose "Stop Default Instance" && close Return || fail "the stop was not confirmed"
    xs_wait 15 eval 'reaped && [[ ! -e $lock ]]' ||
        fail "the server did not end, is not reaped or left its lock: $(ps -o pid=,ppid=,stat= -p "$server_pid")" \
            "(the monitor is $monitor_pid)"
    shows "Start Default Instance" || fail "the stop is not shown"
    told ''

    step=live # a host's menu stays open while a terminal starts and stops the server
    [[ -z $sni_host ]] || click 3
    cli_start
    run stop database --wait >/dev/null && shows "Start Default Instance" || fail "the stop is not shown"
    told '' # a clean stop
    cli_killed
    [[ -z $sni_host ]] || (($(layouts) == 0)) || fail "server changes announced a new layout"
    [[ -z $sni_host ]] || dismiss || fail "the menu stayed open"

    step='kill' # started from the menu, killed from outside: told at once, reaped
    start_from_menu
    kill_is_told "The server was killed by signal 9."
    xs_wait 5 reaped || fail "the killed server stays a zombie"

    # A new instance is shown with no opening of the menu, announced by one new layout.
    [[ $sni_host ]] || return 0
    step=new-instance
    mkdir "$home/zeta" && printf '[database]\n' >"$home/zeta/corvanta.ini"
    shows "Start Instance 'zeta'" || fail "the new instance is not shown"
    "$sni" prop "$service" Title >/dev/null # a round trip: what it announces has been sent
    (($(layouts) == 1)) || fail "$(layouts) layouts announced for one new instance"
}

for ((cycle = 1; cycle <= cycles; cycle++)); do
    step=launch-$cycle
    "${monitor_cmd[@]}" >>"$work/monitor.log" 2>&1 & # not a function: $! is the monitor itself
    monitor_pid=$!
    after_launch
    xs_wait 30 shown || fail "the icon did not appear; registered: $([[ -z $sni_host ]] || "$sni" item 2>&1)"
    ((cycle > 1)) || scenario
    step=quit-$cycle # chosen again should a host's menu not take the click while it opens
    xs_wait 20 eval 'choose "Quit Corvanta Monitor" || dismiss
        xs_wait 5 eval "! kill -0 $monitor_pid 2>/dev/null"' || fail "the monitor did not quit through its Quit item"
    pid=$monitor_pid && monitor_pid=''
    wait "$pid" || fail "the monitor exited with status $?"
    xs_wait 10 eval '! shown' || fail "the icon stayed"
done
[[ $host != gnome ]] || ! grep -E 'Argument two may not be null|Impossible to get basic properties' \
    "$work/shell.log" || fail "the shell's log"
echo "$host: passed, $cycles start and quit cycles"
