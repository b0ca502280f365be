#!/usr/bin/env bash
# Compiles the adapter; FERRY_PREFIX names the installation of ferry when it moves.
set -euo pipefail
cd "$(dirname "$0")"
prefix="${FERRY_PREFIX:-/opt/ferryjni}"
found=$(find "$prefix"/lib* -name ferryjni-plugin.pc -print -quit)
export PKG_CONFIG_PATH="${found%/*}"

# Some are unquoted: they hold several options.
${CXX:-g++} -std=c++17 -Wall -Wextra ${CXXFLAGS:--O2} -shared -fPIC -fvisibility=hidden \
    -o libtemplate.so template.cpp $(pkg-config --cflags --libs ferryjni-plugin)
echo "libtemplate.so is ready: ferry run template.yaml --until-idle"
