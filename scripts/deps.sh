#!/usr/bin/env bash
# Installs the Debian 12 packages a task needs; does nothing when all are
# present. Uses sudo only when not root.
#
# Usage: scripts/deps.sh [demo|headless|test]   (default: test)
#   demo      building and running the monitor and the stand-in server
#   headless  demo, plus a private X server with a tray host for screenshots
#   test      everything: demo, headless, the tests, benchmarks, fuzzing, and
#             load and a window manager for checks by hand
set -euo pipefail

demo=(
    build-essential cmake ninja-build pkg-config
    qt6-base-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools libgl-dev
)
headless=(
    xvfb xauth xdotool trayer x11-utils imagemagick
)
test=(
    qt6-svg-dev
    libgtest-dev libgmock-dev libbenchmark-dev libssl-dev libinih-dev
    clang clang-format libclang-rt-14-dev
    strace stress openbox dbus-daemon dbus-bin python3-gi
    sway waybar grim wtype qt6-wayland gir1.2-dbusmenu-glib-0.4
    gnome-shell gnome-shell-extension-appindicator gjs
    dpkg-dev lintian desktop-file-utils appstream groff-base
    prometheus prometheus-node-exporter
)

case ${1:-test} in
    demo) packages=("${demo[@]}") ;;
    headless) packages=("${demo[@]}" "${headless[@]}") ;;
    test) packages=("${demo[@]}" "${headless[@]}" "${test[@]}") ;;
    *)
        sed -n '5,9p' "$0" | sed 's/^# //' >&2
        exit 2
        ;;
esac

missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    [[ $status == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}" >&2
sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)
"${sudo[@]}" apt-get update -q
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
