#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the demo need;
# does nothing when all are present. Uses sudo only when not root.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    qt6-base-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools qt6-svg-dev libgl-dev
    libgtest-dev libgmock-dev libbenchmark-dev libssl-dev libinih-dev
    clang clang-format libclang-rt-14-dev
    xvfb xauth xdotool trayer x11-utils imagemagick strace dbus-daemon
)

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
