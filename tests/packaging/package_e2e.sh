#!/usr/bin/env bash
# Usage: package_e2e.sh PACKAGE_DIR CORVANTA_STANDIN
# As a user would: builds the .deb, checks it with lintian, installs it, puts
# the demo installation at /opt/corvanta and runs the installed monitor in a
# real tray host without CORVANTA_HOME. Needs root; leaves the machine as it
# found it. On failure its screenshots and logs stay.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
[[ $(id -u) -eq 0 ]] || { echo "SKIP: installing a package needs root"; exit 77; }
package_dir=$1
standin=$(realpath "$2")
opt=/opt/corvanta
# shellcheck source=../e2e/xsession.sh
source "$here/../e2e/xsession.sh"
xs_require dpkg-buildflags lintian Xvfb trayer xdotool import
[[ ! -e $opt ]] || { echo "SKIP: $opt exists and is not this test's"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-package.XXXXXX")
autostart=$work/config/autostart
entry=$autostart/corvanta-monitor.desktop
foreign=$autostart/other-app.desktop
monitor_pid='' made_opt='' installed_here='' step=package

# The instance's lock file, as its corvanta.ini names it.
lock_pid() {
    local lock
    lock=$(sed -n 's/^lockfile *= *//p' "$opt/$1/corvanta.ini" 2>/dev/null)
    tr -dc 0-9 2>/dev/null <"$opt/$1/${lock:-corvanta.lck}" | head -c 10
}
server_runs() { [[ $(readlink "/proc/$(lock_pid "$1")/exe") == "$opt/bin/corvanta" ]]; }

cleanup() {
    local status=$? exe
    [[ -z $monitor_pid ]] || kill "$monitor_pid" 2>/dev/null || true
    if [[ -n $made_opt ]]; then
        # Servers outlive the monitor; every one run from the test's own
        # installation is the test's.
        for exe in /proc/[0-9]*/exe; do
            [[ $(readlink "$exe" 2>/dev/null) != "$opt/bin/corvanta" ]] ||
                kill -9 "$(basename "$(dirname "$exe")")" 2>/dev/null || true
        done
        rm -rf "$opt"
    fi
    [[ -z $installed_here ]] || dpkg --purge corvanta-monitor >"$work/purge.log" 2>&1 || true
    xs_finish $status
}
trap cleanup EXIT

deb=$(PACKAGE_DIR=$package_dir "$root/scripts/package.sh" 2>"$work/package.log" | tail -n 1) ||
    xs_fail "scripts/package.sh: $(tail -n 20 "$work/package.log")"

step=lintian
lintian -i --pedantic "$deb" >"$work/lintian.log" 2>&1 || true
cat "$work/lintian.log"
! grep -q '^[EW]: ' "$work/lintian.log" || xs_fail "lintian reports errors or warnings"

step=install
dpkg-query -W -f='${Status}' corvanta-monitor 2>/dev/null | grep -q 'ok installed' || installed_here=1
if ! dpkg -i "$deb" >"$work/install.log" 2>&1; then
    DEBIAN_FRONTEND=noninteractive apt-get -f install -y -q >>"$work/install.log" 2>&1 ||
        xs_fail "the package did not install: $(tail -n 5 "$work/install.log")"
fi
monitor=$(realpath /usr/bin/corvanta-monitor)

step=installation
mkdir "$opt" || { echo "SKIP: $opt appeared meanwhile"; exit 77; }
made_opt=1
cp -R "$root/examples/installation/." "$opt/"
cp "$standin" "$opt/bin/corvanta"
mkdir -p "$work/home" "$work/runtime" "$autostart"
chmod 700 "$work/runtime"
# Another program from the same bin directory starts at login too.
other=$(realpath "$(command -v trayer)")
printf '[Desktop Entry]\nType=Application\nName=Other\nExec=%s --edge top\n' "$other" >"$foreign"
cp "$foreign" "$work/foreign.orig"

step=session
xs_start || xs_fail "X session"
xs_launch env -u CORVANTA_HOME -u CORVANTA_BINARY HOME="$work/home" XDG_RUNTIME_DIR="$work/runtime" \
    XDG_CONFIG_HOME="$work/config" LANGUAGE='' LC_ALL=C.UTF-8 CORVANTA_STANDIN_PORT=0 \
    /usr/bin/corvanta-monitor

# The menu lists the instances in path order; starting the one at each
# position shows that the menu lists exactly those of /opt/corvanta.
instances=$(cd "$opt" && printf '%s\n' */corvanta.ini | LC_ALL=C sort | cut -d/ -f1)
position=0
for instance in $instances; do
    position=$((position + 1))
    step="start-$instance"
    xs_choose_confirmed Down "$position"
    xs_wait 15 server_runs "$instance" || xs_fail "$instance did not start"
done

xs_login_on_off "$entry" "Exec=$monitor --home $opt" "TryExec=$monitor"
cmp "$foreign" "$work/foreign.orig" || xs_fail "the other program's entry changed"
xs_quit
