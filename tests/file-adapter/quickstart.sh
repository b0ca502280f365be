#!/bin/sh
# Runs the quickstart as a newcomer would, there and back, and lets its own script compare.
# Arguments: ferry, the quickstart's folder, a folder to work in.
set -eu
ferry=$1
work=$3/quickstart
rm -rf "$work"
mkdir -p "$3"
cp -r "$2" "$work"
rm -rf "$work/out"
# From another folder on purpose: the configuration must not depend on the current one.
cd /
# And not on what would spoil text and class path.
export LC_ALL=C CLASSPATH=/nowhere.jar
"$ferry" run "$work/weather.yaml" --until-idle
python3 "$work/verify.py"
"$ferry" run "$work/and-back.yaml" --until-idle
python3 "$work/verify.py" --back
# The comparison itself must be able to fail.
sed -i '2s/"manual":false/"manual":true/; 2s/"rain":0.0/"rain":-0.5/' "$work/out/observations.jsonl"
if python3 "$work/verify.py"; then
    echo "verify.py does not see a difference" >&2
    exit 1
fi
