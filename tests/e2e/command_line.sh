#!/usr/bin/env bash
# Usage: command_line.sh CORVANTA_MONITOR VERSION
# The program's command-line conventions, through the real binary with no
# display reachable: each row is arguments, environment, the exit status and
# what standard output and standard error must hold (extended regexes).
set -uo pipefail
monitor=$(realpath "$1")
version=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-cli.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/home"
failures=0

check() {
    local args=$1 env=$2 status=$3 out=$4 err=$5
    local got_out got_err got
    # shellcheck disable=SC2086 # the row's words are meant to split
    env -i HOME="$work" XDG_CONFIG_HOME="$work/config" PATH=/usr/bin:/bin $env \
        "$monitor" $args >"$work/out" 2>"$work/err"
    got=$?
    got_out=$(<"$work/out") got_err=$(<"$work/err")
    if [[ $got != "$status" ]] || ! [[ $got_out =~ $out ]] || ! [[ $got_err =~ $err ]] ||
        grep -qv '^corvanta-monitor: ' "$work/err"; then
        printf 'FAIL: %s %s\n  status %s (want %s)\n  stdout: %s\n  stderr: %s\n' \
            "$env" "$args" "$got" "$status" "$got_out" "$got_err" >&2
        failures=$((failures + 1))
    fi
}

check "--help" "" 0 "--home <dir>.*--set-home <dir>.*Exit status" "^$"
check "--version" "" 0 "^corvanta-monitor $version$" "^$"
check "--frobnicate" "" 2 "^$" "^corvanta-monitor: Unknown option 'frobnicate'.
corvanta-monitor: Try 'corvanta-monitor --help' for more information.$"
check "--home" "" 2 "^$" "Missing value after '--home'"
check "" "" 1 "^$" "^corvanta-monitor: cannot connect to a display \(DISPLAY=unset, WAYLAND_DISPLAY=unset\)$"
# A display that is named but does not answer: Qt alone would abort.
check "" "DISPLAY=:4711" 1 "^$" "^corvanta-monitor: cannot connect to a display \(DISPLAY=:4711,"
check "--set-home $work/missing" "" 1 "^$" "^corvanta-monitor: $work/missing: not a directory$"
check "--set-home $work/home" "" 0 "^$" "^$"
grep -qx "home = $work/home" "$work/config/corvanta-monitor/monitor.ini" ||
    { echo "FAIL: --set-home did not write home=" >&2; failures=$((failures + 1)); }

((failures == 0)) && echo "all command-line cases pass"
exit $((failures > 0))
