# Drives the monitor in a real tray host on a private X server, with bounded waits.
# Callers (the e2e tests, examples/run-demo.sh) set `work` and call xs_stop on exit.
# shellcheck shell=bash disable=SC2154
xs_pids=()

# Exits as skipped (77) unless every tool named is installed.
xs_require() { for t; do command -v "$t" >/dev/null || { echo "SKIP: $t is not installed"; exit 77; }; done; }

# Polls a command every 0.1 s until it succeeds or `seconds` pass.
xs_wait() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < end)) || return 1
        sleep 0.1
    done
}

# Xvfb on a display number it picks itself (-displayfd), then a tray host.
xs_start() {
    : >"$work/display"
    Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
    xs_pids+=($!)
    xs_wait 10 test -s "$work/display" || { echo "Xvfb did not start" >&2; return 1; }
    DISPLAY=:$(tr -dc 0-9 <"$work/display")
    export DISPLAY QT_QPA_PLATFORM=xcb
    unset WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE DESKTOP_SESSION
    xs_wait 10 xdpyinfo >/dev/null 2>&1 || { echo "Xvfb does not answer on $DISPLAY" >&2; return 1; }
    # A tray host that lost a race for the new display is simply started again.
    local attempt
    for attempt in 1 2 3; do
        trayer --edge top --align right --widthtype request --height 32 --SetDockType true \
            --transparent false >>"$work/trayer.log" 2>&1 &
        xs_pids+=($!)
        xs_wait 5 xdotool search --name '^panel$' >/dev/null 2>&1 && return 0
        echo "tray host attempt $attempt failed" >&2
    done
    return 1
}

xs_stop() {
    ((${#xs_pids[@]})) || return 0
    kill "${xs_pids[@]}" 2>/dev/null || true
    wait "${xs_pids[@]}" 2>/dev/null || true
    xs_pids=()
}

# The tray icon is the monitor's window docked in the panel; menus and dialogs
# are top-level windows.
xs_tray_icon() {
    comm -23 <(xdotool search --onlyvisible --class '^corvanta-monitor$' 2>/dev/null | sort) \
        <(xdotool search --maxdepth 1 --class '^corvanta-monitor$' 2>/dev/null | sort) |
        head -n 1 | grep .
}
xs_has_popup() { xdotool search --maxdepth 1 --onlyvisible --class '^corvanta-monitor$' >/dev/null 2>&1; }
xs_no_popup() { ! xs_has_popup; }

# Clicks the tray icon (button 1 unless given) and waits for the menu to take the keyboard.
xs_open_menu() {
    xs_wait 5 xs_no_popup || { echo "a window is still open" >&2; return 1; }
    xdotool mousemove --window "$(xs_tray_icon)" 8 8 click "${1:-1}"
    xs_wait 5 xs_has_popup || { echo "the menu did not open" >&2; return 1; }
    sleep 0.2
}

xs_screenshot() {
    mkdir -p "$work/screenshots"
    import -window root "$work/screenshots/$1.png" 2>/dev/null || true
}
