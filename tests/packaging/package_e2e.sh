#!/usr/bin/env bash
# Usage: package_e2e.sh PACKAGE_DIR
# As a user would: builds the .deb, checks it with lintian, installs it, puts
# the demo installation at /opt/corvanta, lists it with the installed program
# without CORVANTA_HOME and runs its tray in a real tray host. Needs root;
# leaves the machine as it found it. On failure its screenshots and logs stay.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
[[ $(id -u) -eq 0 ]] || { echo "SKIP: installing a package needs root"; exit 77; }
package_dir=$1
opt=/opt/corvanta
# shellcheck source=../e2e/xsession.sh
source "$here/../e2e/xsession.sh"
xs_require dpkg-buildflags lintian Xvfb trayer xdotool import
[[ ! -e $opt ]] || { echo "SKIP: $opt exists and is not this test's"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-package.XXXXXX")
monitor_pid='' made_opt='' installed_here='' step=package

cleanup() {
    local status=$?
    [[ -z $monitor_pid ]] || kill "$monitor_pid" 2>/dev/null || true
    [[ -z $made_opt ]] || rm -rf "$opt"
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

step=list # the installed program finds /opt/corvanta by itself
mkdir "$opt" || { echo "SKIP: $opt appeared meanwhile"; exit 77; }
made_opt=1
cp -R "$root/examples/installation/." "$opt/"
mkdir -p "$work/home" "$work/runtime"
chmod 700 "$work/runtime"
user=(env -u CORVANTA_HOME -u CORVANTA_BINARY HOME="$work/home" XDG_RUNTIME_DIR="$work/runtime"
    XDG_CONFIG_HOME="$work/config" LANGUAGE='' LC_ALL=C.UTF-8)
listed=$("${user[@]}" /usr/bin/corvanta-monitor list | awk 'NR > 1 { print $1 }' | paste -sd' ')
expected=$(cd "$opt" && printf '%s\n' */corvanta.ini | LC_ALL=C sort | cut -d/ -f1 | paste -sd' ')
[[ $listed == "$expected" ]] || xs_fail "listed '$listed', expected '$expected'"

step=session # the tray runs with what the package depends on
xs_start || xs_fail "X session"
xs_launch "${user[@]}" /usr/bin/corvanta-monitor
xs_quit
