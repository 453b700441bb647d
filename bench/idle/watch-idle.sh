#!/usr/bin/env bash
# Usage: watch-idle.sh SECONDS MONITOR STANDIN
# Counts the wake-ups (context switches over all threads, as idle-probe.sh
# does) of a running `corvanta-monitor watch --metrics FILE` that follows a
# live stand-in server, beside a sleeping process in the same run, over
# SECONDS with nothing changing.
set -euo pipefail
seconds=$1 monitor=$(realpath "$2") standin=$(realpath "$3")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-watch-idle.XXXXXX")
pids=()
cleanup() {
    ((${#pids[@]} == 0)) || kill "${pids[@]}" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
# Polls a condition for at most 30 s.
await() {
    local end=$((SECONDS + 30))
    until "$@"; do
        ((SECONDS < end)) || { echo "gave up waiting for: $*" >&2; exit 1; }
        sleep 0.1
    done
}
wakeups() {
    cat /proc/"$1"/task/*/status 2>/dev/null |
        awk '/^(non)?voluntary_ctxt_switches/ { n += $2 } END { print n + 0 }'
}

home=$work/installation
cp -R "$here/../../examples/installation" "$home"
cp "$standin" "$home/bin/corvanta"
mkdir -p "$work/home"
export HOME=$work/home CORVANTA_HOME=$home CORVANTA_STANDIN_PORT=0
(cd "$home/database" && exec "$home/bin/corvanta" -f) &
pids+=($!)
await test -s "$home/database/corvanta.lck"

"$monitor" watch --metrics "$work/corvanta.prom" >"$work/events" &
watch=$!
pids+=("$watch")
sleep 100000 &
sleeper=$!
pids+=("$sleeper")
# Both lines out means the first look is done and the event loop runs.
lines() { (($(wc -l <"$work/events") >= 2)); }
await lines

a0=$(wakeups "$watch") b0=$(wakeups "$sleeper")
sleep "$seconds"
a1=$(wakeups "$watch") b1=$(wakeups "$sleeper")
printf 'wake-ups in %s s with nothing changing (context switches, all threads):\n' "$seconds"
printf '  %-28s %6d  (%d threads)\n' "corvanta-monitor watch" $((a1 - a0)) "$(ls /proc/"$watch"/task | wc -l)"
printf '  %-28s %6d\n' "sleep 100000" $((b1 - b0))
printf 'lines printed: %d\n' "$(wc -l <"$work/events")"
