#!/usr/bin/env bash
# The metrics service as systemd reads it, and its command line run against an
# installation of its own: it writes the metrics file the unit names.
# Usage: service_test.sh UNIT PROGRAM   (UNIT configured for PROGRAM's directory)
set -uo pipefail
unit=$1 program=$2
command -v systemd-analyze >/dev/null || { echo "systemd-analyze not installed"; exit 77; }
work=$(mktemp -d)
trap '[[ -z ${service_PID:-} ]] || kill "$service_PID" 2>/dev/null; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

# Warnings (an unknown key, a command that is not there) fail too.
verdict=$(systemd-analyze verify --man=no "$unit" 2>&1) && [[ -z $verdict ]] ||
    fail "systemd-analyze: $verdict"

exec_start=$(sed -n 's/^ExecStart=//p' "$unit")
read -ra argv <<<"$exec_start"
[[ ${argv[0]} == "$program" ]] || fail "ExecStart runs ${argv[0]}, not $program"
target=/var/lib/prometheus/node-exporter/corvanta.prom
[[ ${argv[-1]} == "$target" ]] || fail "the unit does not write $target: $exec_start"
grep -qx "ReadWritePaths=-${target%/*}" "$unit" || fail "the unit may not write ${target%/*}"

mkdir -p "$work/home/database" && printf '[database]\n' >"$work/home/database/corvanta.ini"
argv[-1]=$work/corvanta.prom
# watch writes the file before its first line, so that line is the cue.
coproc service { CORVANTA_HOME=$work/home exec "${argv[@]}" 2>"$work/err"; }
read -r -t 60 first <&"${service[0]}" || fail "no first line: $(cat "$work/err")"
grep -q '^corvanta_instance_up{.*instance="database".*} 0$' "$work/corvanta.prom" ||
    fail "no metrics for the instance after '$first': $(cat "$work/corvanta.prom" "$work/err")"
