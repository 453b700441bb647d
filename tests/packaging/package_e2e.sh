#!/usr/bin/env bash
# Usage: package_e2e.sh PACKAGE_DIR CORVANTA_STANDIN NOTIFICATION_RECORDER
# As a user would: builds the .deb, checks it with lintian, installs it, puts
# the demo installation at /opt/corvanta, lists it with the installed program
# without CORVANTA_HOME and runs the tray driver's XEmbed scenario on the
# installed program. Needs root; leaves the machine as it found it.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
[[ $(id -u) -eq 0 ]] || { echo "SKIP: installing a package needs root"; exit 77; }
package_dir=$1 opt=/opt/corvanta
for tool in dpkg-buildflags lintian; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
[[ ! -e $opt ]] || { echo "SKIP: $opt exists and is not this test's"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-package.XXXXXX")
made_opt='' installed_here='' step=package

cleanup() {
    local status=$?
    [[ -z $made_opt ]] || rm -rf "$opt"
    [[ -z $installed_here ]] || dpkg --purge corvanta-monitor >"$work/purge.log" 2>&1 || true
    ((status == 0)) && rm -rf "$work" && return
    echo "FAILED at step '$step' (exit $status); logs in $work" >&2
}
trap cleanup EXIT
fail() { echo "FAIL ($step): $*" >&2 && exit 1; }

deb=$(PACKAGE_DIR=$package_dir "$root/scripts/package.sh" 2>"$work/package.log" | tail -n 1) ||
    fail "scripts/package.sh: $(tail -n 20 "$work/package.log")"

step=lintian
lintian -i --pedantic "$deb" >"$work/lintian.log" 2>&1 || true
cat "$work/lintian.log"
! grep -q '^[EW]: ' "$work/lintian.log" || fail "lintian reports errors or warnings"

step=install
dpkg-query -W -f='${Status}' corvanta-monitor 2>/dev/null | grep -q 'ok installed' || installed_here=1
if ! dpkg -i "$deb" >"$work/install.log" 2>&1; then
    DEBIAN_FRONTEND=noninteractive apt-get -f install -y -q >>"$work/install.log" 2>&1 ||
        fail "the package did not install: $(tail -n 5 "$work/install.log")"
fi

step=list # the installed program finds /opt/corvanta by itself
mkdir "$opt" || { echo "SKIP: $opt appeared meanwhile"; exit 77; }
made_opt=1
cp -R "$root/examples/installation/." "$opt/"
listed=$(env -u CORVANTA_HOME -u CORVANTA_BINARY HOME="$work" XDG_CONFIG_HOME="$work/config" \
    LANGUAGE='' LC_ALL=C.UTF-8 /usr/bin/corvanta-monitor list | awk 'NR > 1 { print $1 }' | paste -sd' ')
expected=$(cd "$opt" && printf '%s\n' */corvanta.ini | LC_ALL=C sort | cut -d/ -f1 | paste -sd' ')
[[ $listed == "$expected" ]] || fail "listed '$listed', expected '$expected'"

step=tray # with only what the package depends on
"$root/tests/e2e/tray_e2e.sh" xembed /usr/bin/corvanta-monitor "$2" "$3" || {
    status=$? && ((status == 77)) && exit 77
    fail "the tray driver (exit $status)"
}
