#!/usr/bin/env bash
# Two relays with a DDS domain between them: one publishes the table, the other writes what arrives.
# Ends 0 when both did and nothing was lost on the way. usage: run.sh FERRY
set -euo pipefail
ferry=$(realpath "$1")
cd "$(dirname "$0")"

stop() {
    trap '' INT TERM
    local relays
    relays=$(jobs -p)
    [ -z "$relays" ] || kill $relays 2>/dev/null || true
    wait
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Its result must not be mistaken for an earlier run's.
rm -f out/observations.jsonl

# The subscriber ends when nothing more comes; the publisher waits for the subscriber.
"$ferry" run subscribe.yaml --until-idle=2 --after-first --quiet &
"$ferry" run publish.yaml --until-idle --quiet &
wait -n
wait -n
python3 verify.py --by-station
