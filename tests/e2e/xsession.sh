# Helpers for driving the tray monitor on a private X server with a real tray
# host, as a person would. Sourced by tray_e2e.sh and examples/run-demo.sh;
# callers set `work` (a private directory) first and call xs_stop on exit.
# Every wait is bounded.
xs_pids=()

# Polls a command every 0.1 s until it succeeds or `seconds` pass.
xs_wait() {
    local i tenths=$(($1 * 10))
    shift
    for ((i = 0; i < tenths; i++)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}

# Xvfb on a display number it picks itself (-displayfd), then a tray host.
xs_start() {
    : >"$work/display"
    Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
    xs_pids+=($!)
    xs_wait 10 test -s "$work/display" || { echo "Xvfb did not start" >&2; return 1; }
    export DISPLAY=:$(tr -dc 0-9 <"$work/display") QT_QPA_PLATFORM=xcb
    unset WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE DESKTOP_SESSION
    trayer --edge top --align right --widthtype request --height 32 --SetDockType true \
        --transparent false >"$work/trayer.log" 2>&1 &
    xs_pids+=($!)
    xs_wait 10 xs_panel >/dev/null || { echo "the tray host did not come up" >&2; return 1; }
}

xs_stop() {
    ((${#xs_pids[@]})) || return 0
    kill "${xs_pids[@]}" 2>/dev/null || true
    wait "${xs_pids[@]}" 2>/dev/null || true
    xs_pids=()
}

xs_panel() { xdotool search --name '^panel$' 2>/dev/null | head -n 1 | grep .; }

# "X Y W H" of a window; fails for unmapped ones.
xs_geometry() {
    xwininfo -id "$1" 2>/dev/null | awk '
        /Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF}
        /Width:/ {w=$NF} /Height:/ {h=$NF} /Map State: IsViewable/ {v=1}
        END {if (v && w > 0) print x, y, w, h; else exit 1}'
}

# The centre of the monitor's window docked inside the panel: its tray icon.
xs_tray_icon() {
    local px py pw ph w x y ww wh
    read -r px py pw ph < <(xs_geometry "$(xs_panel)") || return 1
    for w in $(xdotool search --class '^corvanta-monitor$' 2>/dev/null); do
        read -r x y ww wh < <(xs_geometry "$w") || continue
        if ((ww >= 8 && wh >= 8 && x >= px && y >= py && x + ww <= px + pw && y + wh <= py + ph)); then
            echo "$((x + ww / 2)) $((y + wh / 2))"
            return 0
        fi
    done
    return 1
}

# The number of the monitor's other viewable top-level windows: an open menu
# or dialog.
xs_popups() {
    xwininfo -root -children 2>/dev/null | awk '/"corvanta-monitor" "corvanta-monitor"/ {print $1}' |
        while read -r w; do
            read -r _ _ ww wh < <(xs_geometry "$w") || continue
            ((ww > 8 && wh > 8)) && echo "$w"
        done | wc -l
}
xs_has_popup() { (($(xs_popups) > 0)); }
xs_no_popup() { (($(xs_popups) == 0)); }

# Clicks the tray icon and waits for the menu to show.
xs_open_menu() {
    local pos
    xs_wait 5 xs_tray_icon >/dev/null && pos=$(xs_tray_icon) || { echo "no tray icon" >&2; return 1; }
    xs_wait 5 xs_no_popup || { echo "a window is still open" >&2; return 1; }
    # shellcheck disable=SC2086
    xdotool mousemove $pos click 1
    xs_wait 5 xs_has_popup || { echo "the menu did not open" >&2; return 1; }
    sleep 0.2  # let the menu take the keyboard grab
}

# Opens the menu, moves `n` items with `key` (Down from the top, Up from the
# bottom; the menu skips separators and disabled items) and presses Return.
xs_choose() {
    local name=$1 key=$2 n=$3 i
    xs_open_menu || return 1
    xs_screenshot "$name-menu"
    for ((i = 0; i < n; i++)); do
        xdotool key "$key"
    done
    xdotool key Return
}

xs_screenshot() {
    mkdir -p "$work/screenshots"
    import -window root "$work/screenshots/$1.png" 2>/dev/null || true
}
