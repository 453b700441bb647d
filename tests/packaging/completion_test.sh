#!/usr/bin/env bash
# Drives the bash completion as bash does, through the real program and an
# installation of its own, and checks what it offers.
# Usage: completion_test.sh COMPLETION_FILE PROGRAM
set -uo pipefail
completion=$1 program=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for dir in database analytics 'with space' 'quote"d'; do
    mkdir -p "$work/home/$dir" && printf '[database]\n' >"$work/home/$dir/corvanta.ini"
done

# shellcheck source=/dev/null
source "$completion" || { echo "FAIL: the completion does not load"; exit 1; }

# Completes the words given (the last one is being typed) and compares the
# sorted offers with the expected words.
expect() {
    local expected=$1 got
    shift
    COMP_WORDS=("$program" "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _corvanta_monitor
    got=$(printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd' ')
    [[ $got == "$expected" ]] || { echo "FAIL: '$*' offered '$got', expected '$expected'"; exit 1; }
}

home=(--home "$work/home")
expect "list metrics start status stop watch" ""
expect "start status stop" "${home[@]}" st
expect "analytics database default quote\\\"d with\\ space" "${home[@]}" start ""
expect "database default" "${home[@]}" status d
expect "--help --home --json --version --wait" "${home[@]}" start --
expect "--help --home --json --version" list --
expect "--help --home --set-home --version" --
expect "--help --home --json --metrics --version" watch --
expect "--help --home --output --version" metrics --
# A file name after --metrics, and the instance after it.
expect "$work/home" watch --metrics "$work/ho"
expect "analytics" "${home[@]}" watch --metrics "$work/m.prom" an
# With the installation from the environment instead of --home.
CORVANTA_HOME=$work/home expect "analytics" start an
# An installation that does not exist offers only "default".
expect "default" --home "$work/none" start ""
