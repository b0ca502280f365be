#!/usr/bin/env bash
# The two-process quickstart and the program that watches it, in a domain of this test's own.
# usage: quickstart.sh EXAMPLES FERRY [IDLC]
set -euo pipefail
examples=$1 ferry=$2 idlc=${3:-}

work=$(mktemp -d)
watcher=
trap 'kill $watcher 2>/dev/null || true; rm -rf "$work"' EXIT
cp -r "$examples/quickstart" "$examples/watch" "$work"
rm -rf "$work/quickstart/out"
cd "$work/quickstart"
sed -i 's/domain: 5$/domain: 62/' publish.yaml subscribe.yaml

./run.sh "$ferry" | tee log
grep -q '^publish: 5040 read, 5040 written, 0 errors' log
# At the end each of the 12 stations loses its writer.
grep -q '^subscribe: 5040 read, 5040 written, 0 errors, 12 ends' log

# One side that cannot start ends both.
sed 's/^  - file: .*/  - file: nowhere.idl/' -i subscribe.yaml
if timeout 30 ./run.sh "$ferry"; then
    echo "run.sh does not see that the subscriber has failed" >&2
    exit 1
fi

# The commands of the README.
[ -n "$idlc" ] || exit 0
cd "$work/watch"
"$idlc" ../quickstart/weather.idl
cc -o watch watch.c weather.c -lddsc
timeout 60 ./watch 62 >seen &
watcher=$!
"$ferry" run ../quickstart/publish.yaml --until-idle --quiet
for _ in $(seq 50); do
    [ "$(grep -c degrees seen)" -ne 5040 ] || exit 0
    sleep 0.2
done
echo "watch has seen $(grep -c degrees seen) of 5040 observations" >&2
exit 1
