#!/usr/bin/env bash
# The metrics service as systemd reads it, and its command line run against an
# installation of its own: it writes the file where the unit says, keeps it
# and removes it on signal 15 with status 0.
# Usage: service_test.sh UNIT PROGRAM   (UNIT configured for PROGRAM's directory)
set -uo pipefail
unit=$1 program=$2
command -v systemd-analyze >/dev/null || { echo "systemd-analyze not installed"; exit 77; }
work=$(mktemp -d)
service=
trap '[[ -z $service ]] || kill "$service" 2>/dev/null; rm -rf "$work"' EXIT
fail() {
    echo "FAIL: $*"
    exit 1
}

# Warnings (an unknown key, a command that is not there) fail too.
verdict=$(systemd-analyze verify --man=no "$unit" 2>&1) || fail "systemd-analyze: $verdict"
[[ -z $verdict ]] || fail "systemd-analyze: $verdict"

exec_start=$(sed -n 's/^ExecStart=//p' "$unit")
read -ra argv <<<"$exec_start"
[[ ${argv[0]} == "$program" ]] || fail "ExecStart runs ${argv[0]}, not $program"
target=/var/lib/prometheus/node-exporter/corvanta.prom
[[ ${argv[-1]} == "$target" ]] || fail "the unit does not write $target: $exec_start"
grep -qx "ReadWritePaths=-${target%/*}" "$unit" || fail "the unit may not write ${target%/*}"

mkdir -p "$work/home/database" && printf '[database]\n' >"$work/home/database/corvanta.ini"
argv[-1]=$work/corvanta.prom
CORVANTA_HOME=$work/home "${argv[@]}" >"$work/out" 2>&1 &
service=$!
for ((i = 0; i < 600; i++)); do
    grep -q '^corvanta_instances 1$' "$work/corvanta.prom" 2>/dev/null && break
    kill -0 "$service" 2>/dev/null || fail "the service exited: $(cat "$work/out")"
    sleep 0.05
done
grep -q '^corvanta_instance_up{.*instance="database".*} 0$' "$work/corvanta.prom" ||
    fail "no metrics for the instance: $(cat "$work/corvanta.prom" "$work/out" 2>&1)"
kill -TERM "$service"
wait "$service"
status=$?
service=
((status == 0)) || fail "exit status $status on signal 15"
[[ ! -e $work/corvanta.prom ]] || fail "the metrics file outlived the service"
echo "service: the unit verifies and its command keeps the file"
