#!/usr/bin/env bash
# ferry new adapter: what it makes can be built, tested and run as it says, and it spoils nothing.
# usage: new_adapter.sh FERRY JAVA_HOME [NAME=VALUE for a Java VM that loads the libraries]
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir bin
printf '#!/bin/sh\nexec env %s "%s/bin/java" "$@"\n' "${3:-}" "$2" >bin/java
chmod +x bin/java
PATH=$work/bin:$(dirname "$1"):$2/bin:$PATH
ferry new adapter gauge
(
    cd gauge
    ./build.sh
    ferry check gauge.yaml
    ferry run gauge.yaml --until-idle=0.5
    seq 5 | sed 's,.*,& reading &,' | diff - readings.txt
    # The settings that it declares are found in its own jar.
    sed -i 's/count: 5/cuont: 5/' gauge.yaml
    ferry check gauge.yaml 2>complaints || test $? -eq 2
    grep '^gauge.yaml:[0-9]*:[0-9]*: .*cuont.*count' complaints
)
# A name and a package that look like the template's own.
ferry new adapter Template2 --package template.org.example.template made/here
made/here/build.sh
ferry run made/here/template2.yaml --until-idle=0.5
if grep -rnI 'gauge\|Template[^2]\|/opt/ferryjni' made/here; then
    exit 1
fi

rejected() {
    local before after code=0
    before=$(find . -type f -exec md5sum {} + | sort)
    ferry new adapter "$@" || code=$?
    after=$(find . -type f -exec md5sum {} + | sort)
    [[ $code -eq 2 && $before = "$after" ]] || { echo "not rejected: $*" >&2; exit 1; }
}
rejected
rejected gauge
rejected Gauge --package other.place
rejected 2fast
rejected gau-ge
rejected ../gauge
rejected class
rejected ''
rejected a --package org..example
rejected a --package org.example.
rejected a --package org.int.example
rejected a --package java.lang
rejected a --package com.qel.ferrion.kit
