#!/usr/bin/env bash
# Compiles, tests and packs the adapter; FERRY_JARS names the folder of ferry's jars when it moves.
set -euo pipefail
cd "$(dirname "$0")"
jars="${FERRY_JARS:-/opt/ferryjni/share/ferryjni/java}"

rm -rf classes
javac --release 17 -encoding UTF-8 -Xlint:all -cp "$jars/*" -d classes/main $(find src/main/java -name '*.java')
javac --release 17 -encoding UTF-8 -Xlint:all -cp "$jars/*:classes/main" -d classes/test $(find src/test/java -name '*.java')
java -cp "$jars/*:classes/main:classes/test" org.example.template.TemplateAdapterTest
jar --create --file template.jar -C classes/main .
echo "template.jar is ready: ferry run template.yaml --until-idle"
