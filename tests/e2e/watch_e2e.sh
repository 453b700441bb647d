#!/usr/bin/env bash
# Usage: watch_e2e.sh CORVANTA_MONITOR CORVANTA_STANDIN
# watch --json and watch --metrics through the real binary and the stand-in
# server: a start, a stop, a kill and a new instance directory each seen once,
# in order, and nothing else; the metrics as promtool and node_exporter read
# them; SIGTERM and a closed pipe end watch with status 0.
set -uo pipefail
monitor=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=xsession.sh
source "$here/xsession.sh"
xs_require promtool prometheus-node-exporter
work=$(mktemp -d "${TMPDIR:-/tmp}/corvanta-watch.XXXXXX")
home=$work/installation prom=$work/textfile/corvanta.prom
lock=$home/database/corvanta.lck
pids=()
cleanup() {
    local status=$?
    ((${#pids[@]} == 0)) || kill "${pids[@]}" 2>/dev/null
    [[ ! -s $lock ]] || kill -9 "$(cat "$lock")" 2>/dev/null
    if ((status == 0)); then rm -rf "$work"; else echo "kept $work" >&2; fi
}
trap cleanup EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}
seen() { (($(wc -l <"$work/events") >= $1)); } # event lines so far
# The events so far as "event instance previous state pid?".
events() {
    sed -E 's/.*"event":"([a-z]+)","instance":"([^"]*)","pid":(null|[0-9]+),"previous":"?([a-z]+)"?,"state":"?([a-z]+)"?.*/\1 \2 \4 \5 \3/; s/ [0-9]+$/ pid/' "$work/events"
}
# Whether node_exporter's page shows the database instance up (1) or down (0).
scrape() (
    exec 3<>"/dev/tcp/127.0.0.1/$port" || exit 1
    printf 'GET /metrics HTTP/1.0\r\n\r\n' >&3
    tr -d '\r' <&3 | grep -q "^corvanta_instance_up{.*instance=\"database\".*} $1\$"
)

cp -R "$here/../../examples/installation" "$home"
cp "$2" "$home/bin/corvanta"
mkdir -p "$work/home" "$work/textfile"
export HOME=$work/home CORVANTA_HOME=$home CORVANTA_STANDIN_PORT=0

# Label values escaped as the format wants: promtool refuses a quote, backslash or line break left bare.
odd=$home/$'we"ird\\\nx'
mkdir "$odd" && cp "$home/analytics/corvanta.ini" "$odd/"
"$monitor" metrics >"$work/odd.prom" && promtool check metrics <"$work/odd.prom" || fail "promtool refuses the metrics"
grep -qF 'instance="we\"ird\\\nx"' "$work/odd.prom" || fail "labels: $(cat "$work/odd.prom")"
rm -r "$odd"
"$monitor" watch --json --metrics "$prom" >"$work/events" 2>"$work/watch.err" &
watch=$!
pids+=("$watch")
xs_wait 10 seen 2 || fail "no initial state"
"$monitor" start --wait database >/dev/null || fail "start"
xs_wait 10 seen 3 || fail "the start was not seen"
promtool check metrics <"$prom" || fail "promtool refuses the file watch keeps"
for series in 'state{.*instance="database".*state="running"} 1' 'server_pid{.*instance="database".*} [0-9]+' \
    'server_start_time_seconds{.*instance="database".*} [0-9]{10}\.[0-9]{2}'; do
    grep -Eq "^corvanta_instance_$series\$" "$prom" || fail "no $series in $(cat "$prom")"
done

# node_exporter serves the file; its page follows the server down.
port=$(/usr/bin/python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
prometheus-node-exporter --collector.disable-defaults --collector.textfile \
    --collector.textfile.directory="$work/textfile" --web.listen-address="127.0.0.1:$port" \
    >"$work/node_exporter.log" 2>&1 &
pids+=($!)
xs_wait 20 scrape 1 || fail "node_exporter does not show the instance up"
"$monitor" stop --wait database >/dev/null || fail "stop"
xs_wait 10 scrape 0 || fail "node_exporter does not show the instance down"

"$monitor" start --wait database >/dev/null || fail "second start"
xs_wait 10 seen 5 || fail "the second start was not seen"
kill -9 "$(cat "$lock")"
xs_wait 10 seen 6 || fail "the kill was not seen"
mkdir "$home/third" && cp "$home/analytics/corvanta.ini" "$home/third/"
xs_wait 10 seen 7 || fail "the new instance was not seen"

kill -TERM "$watch"
wait "$watch" || fail "watch ended on SIGTERM with status $?"
[[ ! -e $prom ]] || fail "watch left its metrics file behind"
expected="present analytics null stopped null
present database null stopped null
changed database stopped running pid
changed database running stopped null
changed database stopped running pid
changed database running stopped null
appeared third null stopped null"
[[ $(events) == "$expected" ]] || fail "events: $(events) (expected: $expected)"

# A reader that goes away ends watch at once, without a word.
timeout 20 "$monitor" watch 2>"$work/pipe.err" | head -n 1 >/dev/null
[[ ${PIPESTATUS[0]} == 0 ]] || fail "watch into a closed pipe: status ${PIPESTATUS[0]}"
