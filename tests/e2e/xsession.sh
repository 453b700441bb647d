# Helpers for driving the tray monitor on a private X server with a real tray
# host, as a person would. Sourced by tray_e2e.sh and examples/run-demo.sh;
# callers set `work` (a private directory) first and call xs_stop on exit.
# Every wait is bounded.

xs_pids=()

xs_log() { printf '%s\n' "$*" >&2; }

# Polls a command every 0.1 s until it succeeds or `seconds` pass.
xs_wait() {
    local seconds=$1
    shift
    local i
    for ((i = 0; i < seconds * 10; i++)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}

# Xvfb on a display number it picks itself (-displayfd), then a tray host.
xs_start() {
    local displayfile=$work/display
    : >"$displayfile"
    Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$displayfile" \
        >"$work/xvfb.log" 2>&1 &
    xs_pids+=($!)
    xs_wait 10 test -s "$displayfile" || { xs_log "Xvfb did not start"; return 1; }
    export DISPLAY=:$(tr -dc 0-9 <"$displayfile")
    unset WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE DESKTOP_SESSION
    export QT_QPA_PLATFORM=xcb
    trayer --edge top --align right --widthtype request --height 32 --SetDockType true \
        --transparent false >"$work/trayer.log" 2>&1 &
    xs_pids+=($!)
    xs_wait 10 xs_panel >/dev/null || { xs_log "the tray host did not come up"; return 1; }
}

xs_stop() {
    local pid
    for pid in "${xs_pids[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${xs_pids[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    xs_pids=()
}

# The tray host's panel window.
xs_panel() { xdotool search --name '^panel$' 2>/dev/null | head -n 1 | grep .; }

# "X Y W H" of a window, from xwininfo; fails for unmapped windows.
xs_geometry() {
    xwininfo -id "$1" 2>/dev/null | awk '
        /Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF}
        /Width:/ {w=$NF} /Height:/ {h=$NF} /Map State: IsViewable/ {v=1}
        END {if (v && w > 0) print x, y, w, h; else exit 1}'
}

# The centre of the monitor's icon docked inside the panel: the window of
# WM_CLASS "corvanta-monitor" that lies within the panel's rectangle.
xs_tray_icon() {
    local panel px py pw ph w x y ww wh
    panel=$(xs_panel) || return 1
    read -r px py pw ph < <(xs_geometry "$panel") || return 1
    for w in $(xdotool search --class '^corvanta-monitor$' 2>/dev/null); do
        read -r x y ww wh < <(xs_geometry "$w") || continue
        if ((ww >= 8 && wh >= 8 && x >= px && y >= py && x + ww <= px + pw && y + wh <= py + ph)); then
            echo "$((x + ww / 2)) $((y + wh / 2))"
            return 0
        fi
    done
    return 1
}

# Viewable top-level windows of the monitor other than its tray icon: an
# open menu or dialog. Prints their count.
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
    xs_wait 5 xs_tray_icon >/dev/null || { xs_log "no tray icon"; return 1; }
    pos=$(xs_tray_icon)
    xs_wait 5 xs_no_popup || { xs_log "a window is still open"; return 1; }
    # shellcheck disable=SC2086
    xdotool mousemove $pos click 1
    xs_wait 5 xs_has_popup || { xs_log "the menu did not open"; return 1; }
    sleep 0.2  # let the menu take the keyboard grab
}

xs_screenshot() {
    mkdir -p "$work/screenshots"
    import -window root "$work/screenshots/$1.png" 2>/dev/null || true
}
