#!/usr/bin/env bash
# The manual page formats without a warning and documents every option and
# command that --help lists.
# Usage: manpage_test.sh MANPAGE PROGRAM
set -uo pipefail
manpage=$1 program=$2
fail() { echo "FAIL: $*"; exit 1; }

warnings=$(groff -man -Tutf8 -ww -z "$manpage" 2>&1) && [[ -z $warnings ]] ||
    fail "groff warns: $warnings"
text=$(groff -man -Tascii -P-cbou "$manpage" 2>/dev/null)
[[ $text == *NAME*corvanta-monitor* && $text == *SYNOPSIS* ]] || fail "no NAME or SYNOPSIS section"

help=$("$program" --help) || fail "--help failed"
mapfile -t options < <(grep -o -- '--[a-z][a-z-]*' <<<"$help" | sort -u)
((${#options[@]} >= 4)) || fail "too few options in --help: ${options[*]}"
commands=$(sed -n 's/^  \([a-z][a-z]*\) .*/\1/p' <<<"${help#*Commands}" | sort -u)
[[ -n $commands ]] || fail "no commands in --help"
for word in "${options[@]}" $commands; do
    grep -q -- "$word" <<<"$text" || fail "the manual page does not mention $word"
done
