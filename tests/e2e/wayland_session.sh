# A headless Wayland session for driving the monitor in a real StatusNotifierItem host:
# sway with a bar holding only a tray, on a private session bus, with bounded waits.
# Callers set `work` (a fresh mktemp directory) and `step`, and call wl_finish on exit.
# The compositor, the bar and the bus refuse root or belong to the host side, so as root
# they run as an unprivileged user; clients run as the caller and reach them by path.
# shellcheck shell=bash disable=SC2154
wl_pids=()
wl_uid=65534
wl_bar_height=32 wl_icon_size=24 wl_icon_spacing=8
wl_bar_color=ff00ff # a colour no icon is made of, so that drawn items stand out

# xs_require and xs_wait
# shellcheck source=xsession.sh
source "$(dirname "${BASH_SOURCE[0]}")/xsession.sh"

# The prefix that runs a command on the host side, as the unprivileged user when we are
# root; an array rather than a function, so that `$!` is the command itself.
wl_host_prefix() {
    wl_as_host=(env -i PATH=/usr/bin:/bin HOME="$wl_host" XDG_RUNTIME_DIR="$wl_host"
        XDG_CONFIG_HOME="$wl_host/config" LANG=C.UTF-8)
    ((EUID)) || wl_as_host=(setpriv --reuid="$wl_uid" --regid="$wl_uid" --clear-groups "${wl_as_host[@]}")
}

wl_swaymsg() { swaymsg -s "$wl_sway_ipc" "$@"; }
wl_outputs_answer() { wl_swaymsg -t get_outputs >/dev/null 2>&1; }
wl_seat_has_pointer() { wl_swaymsg -t get_seats 2>/dev/null | grep -q '"type": "pointer"'; }
wl_watcher_up() {
    dbus-send --bus="$wl_bus" --print-reply --dest=org.freedesktop.DBus / \
        org.freedesktop.DBus.NameHasOwner string:org.kde.StatusNotifierWatcher 2>/dev/null |
        grep -q 'boolean true'
}
wl_bar_drawn() { [[ $(wl_bar_pixels | head -c 3 | od -An -tx1 | tr -d ' \n') == "$wl_bar_color" ]]; }
wl_first() { local f=("$@"); [[ -S ${f[0]} ]] && echo "${f[0]}"; }
wl_find_ipc() { wl_sway_ipc=$(wl_first "$wl_host"/sway-ipc.*.sock); }

wl_write_configs() {
    # The host user runs the bus; `user="*"` lets root's clients on it too.
    cat >"$work/bus.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=$wl_host/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
EOF
    # Nothing is started from here (no swaybg, no swaynag, no Xwayland): the bar comes
    # from wl_start, so its process and log are ours.
    cat >"$work/sway.conf" <<EOF
xwayland disable
swaynag_command -
output HEADLESS-1 resolution 1024x768 position 0 0
default_border normal 1
EOF
    cat >"$work/waybar.json" <<EOF
{
  "layer": "top", "position": "top", "height": $wl_bar_height, "spacing": 0,
  "modules-left": ["tray"],
  "tray": { "icon-size": $wl_icon_size, "spacing": $wl_icon_spacing }
}
EOF
    # Only the bar is unstyled, so items sit at fixed places; its menus keep the theme.
    cat >"$work/waybar.css" <<EOF
window#waybar * { all: unset; }
window#waybar { background: #$wl_bar_color; }
EOF
    # A virtual pointer gives the seat the pointer clients need before sway's own
    # cursor commands reach them (a headless seat has no input devices at all).
    cat >"$work/vpointer.py" <<'EOF'
import socket, struct, sys
sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
sock.connect(sys.argv[1])
def send(obj, op, body=b''):
    sock.sendall(struct.pack('=II', obj, (8 + len(body)) << 16 | op) + body)
iface = 'zwlr_virtual_pointer_manager_v1'
send(1, 1, struct.pack('=I', 2))  # wl_display.get_registry -> 2
send(1, 0, struct.pack('=I', 3))  # wl_display.sync -> 3, done after the globals
buf, name, synced = b'', None, False
while not synced:
    data = sock.recv(4096)
    if not data:
        sys.exit('the compositor closed the connection')
    buf += data
    while len(buf) >= 8:
        obj, word = struct.unpack_from('=II', buf)
        if len(buf) < word >> 16:
            break
        body, buf = buf[8:word >> 16], buf[word >> 16:]
        if obj == 2 and word & 0xffff == 0:
            global_name, length = struct.unpack_from('=II', body)
            if body[8:8 + length - 1].decode() == iface:
                name = global_name
        elif obj == 3:
            synced = True
        elif obj == 1 and word & 0xffff == 0:
            sys.exit('protocol error')
if name is None:
    sys.exit('no ' + iface)
text = iface.encode() + b'\0'
send(2, 0, struct.pack('=II', name, len(text)) + text + b'\0' * (-len(text) % 4) +
     struct.pack('=II', 1, 4))      # wl_registry.bind -> 4
send(4, 0, struct.pack('=II', 0, 5))  # create_virtual_pointer(default seat) -> 5
print('ready', flush=True)
while sock.recv(4096):
    pass
EOF
}

# The bus, sway and a virtual pointer; returns once sway answers.
wl_start() {
    xs_require sway swaymsg waybar grim dbus-daemon dbus-send setpriv python3 od
    wl_host=$work/host wl_runtime=$work/runtime
    mkdir -p "$wl_host/config" "$wl_runtime" "$work/screenshots"
    chmod 700 "$wl_host" "$wl_runtime"
    if ((EUID == 0)); then
        chmod 711 "$work" # the host user passes through to its own directory only
        chown -R "$wl_uid:$wl_uid" "$wl_host"
    fi
    wl_write_configs
    wl_host_prefix
    wl_bus=unix:path=$wl_host/bus

    "${wl_as_host[@]}" dbus-daemon --config-file="$work/bus.conf" --nofork --print-address=1 \
        >"$work/bus.address" 2>"$work/bus.log" &
    wl_pids+=($!)
    xs_wait 5 test -s "$work/bus.address" || { echo "no session bus" >&2; return 1; }

    "${wl_as_host[@]}" WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 sway -c "$work/sway.conf" \
        >"$work/sway.log" 2>&1 &
    wl_pids+=($!)
    xs_wait 10 wl_find_ipc ||
        { echo "sway did not start" >&2; return 1; }
    xs_wait 10 wl_outputs_answer || { echo "sway does not answer" >&2; return 1; }
    wl_display=$(wl_first "$wl_host"/wayland-[0-9]) || { echo "no Wayland socket" >&2; return 1; }

    "${wl_as_host[@]}" python3 "$work/vpointer.py" "$wl_display" >"$work/vpointer.log" 2>&1 &
    wl_pids+=($!)
    xs_wait 5 wl_seat_has_pointer || { echo "no virtual pointer" >&2; return 1; }
}

# The bar, whose tray is the StatusNotifierItem host; returns once its watcher is on the
# bus and the bar is drawn.
wl_start_bar() {
    "${wl_as_host[@]}" WAYLAND_DISPLAY="$wl_display" DBUS_SESSION_BUS_ADDRESS="$wl_bus" \
        waybar -l debug -c "$work/waybar.json" -s "$work/waybar.css" >"$work/waybar.log" 2>&1 &
    wl_pids+=($!)
    xs_wait 10 wl_watcher_up || { echo "the bar's watcher is not on the bus" >&2; return 1; }
    xs_wait 10 wl_bar_drawn || { echo "the bar is not drawn" >&2; return 1; }
}

# What a client needs.
wl_env() {
    export WAYLAND_DISPLAY=$wl_display DBUS_SESSION_BUS_ADDRESS=$wl_bus QT_QPA_PLATFORM=wayland \
        XDG_RUNTIME_DIR=$wl_runtime
    unset DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE DESKTOP_SESSION
}

wl_screenshot() {
    WAYLAND_DISPLAY=$wl_display grim "$work/screenshots/$1.png" 2>>"$work/grim.log" || true
}

# The pixels of a region ("X,Y WxH") as a binary PPM, to compare with another grab.
wl_grab() { WAYLAND_DISPLAY=$wl_display grim -t ppm -g "$1" - 2>/dev/null; }

# The bar's pixels as raw RGB, row by row.
wl_bar_pixels() {
    local header=$'P6\n'"1024 $wl_bar_height"$'\n255\n'
    wl_grab "0,0 1024x$wl_bar_height" | tail -c +$((${#header} + 1))
}

# Whether the bar drew something in the tray's first slot (0,4 24x24: the tray is the
# bar's only module, left-aligned, unpadded).
wl_item_drawn() {
    wl_bar_pixels | python3 -c '
import sys
px, bg = sys.stdin.buffer.read(), bytes.fromhex(sys.argv[1])
sys.exit(all(px[(y * 1024 + x) * 3:(y * 1024 + x) * 3 + 3] == bg
             for y in range(4, 28) for x in range(24)))' "$wl_bar_color"
}

# Clicks at output coordinates with button 1-3 (or left, middle, right) through the
# seat's own cursor; the pointer stays there.
wl_click() {
    local button=$3
    case $button in left) button=1 ;; middle) button=2 ;; right) button=3 ;; esac
    wl_swaymsg seat - cursor set "$1" "$2" >/dev/null &&
        wl_swaymsg seat - cursor press "button$button" >/dev/null &&
        wl_swaymsg seat - cursor release "button$button" >/dev/null
}

# One line per window sway manages: app_id, name, x,y wxh and "focused" if it is.
# Popups (menus, the bar's too) are not windows and are seen only in screenshots.
wl_windows() {
    wl_swaymsg -t get_tree | python3 -c '
import json, sys
def walk(node):
    if node.get("pid") and node["type"] in ("con", "floating_con"):
        r = node["rect"]
        print(node.get("app_id") or node.get("window_properties", {}).get("class"),
              repr(node.get("name")), "%d,%d %dx%d" % (r["x"], r["y"], r["width"], r["height"]),
              "focused" if node.get("focused") else "", sep="\t")
    for child in node.get("nodes", []) + node.get("floating_nodes", []):
        walk(child)
walk(json.load(sys.stdin))'
}

wl_stop() {
    ((${#wl_pids[@]})) || return 0
    local i
    for ((i = ${#wl_pids[@]} - 1; i >= 0; i--)); do kill "${wl_pids[i]}" 2>/dev/null || true; done
    wait "${wl_pids[@]}" 2>/dev/null || true
    wl_pids=()
}

# For test scripts' exit traps, given the exit status: a failed run keeps `work` for a
# look, and so does any run with WL_KEEP set.
wl_finish() {
    [[ -z ${monitor_pid:-} ]] || kill "$monitor_pid" 2>/dev/null || true
    (($1 == 0)) || [[ -z ${wl_display:-} || -e $work/screenshots/failure-$step.png ]] ||
        wl_screenshot "exit-$step"
    wl_stop
    if (($1 == 0)); then
        if [[ -n ${WL_KEEP:-} ]]; then echo "screenshots and logs in $work"; else rm -rf "$work"; fi
        return
    fi
    echo "FAILED at step '$step' (exit $1); screenshots and logs in $work" >&2
}

# For test scripts, which keep the name of what they do in `step`: a screenshot, the
# reason, and exit status 1.
wl_fail() {
    wl_screenshot "failure-$step"
    echo "FAIL ($step): $*" >&2
    exit 1
}
