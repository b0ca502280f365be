#!/usr/bin/env bash
# usage: install_and_use.sh CMAKE BUILD_TREE CONSUMER_SOURCE COMPILER GENERATOR FLAGS
set -euo pipefail
cmake=$1 tree=$2 consumer=$3 compiler=$4 generator=$5 flags=$6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$tree" --prefix "$work/prefix" >/dev/null
"$cmake" -S "$consumer" -B "$work/build" -G "$generator" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
"$cmake" --build "$work/build" >/dev/null
"$work/build/consumer"
"$work/prefix/bin/ferry" --version
"$work/prefix/bin/ferry" new adapter Gauge "$work/gauge" >/dev/null
test -x "$work/gauge/build.sh"
cp -r "$work/prefix/share/ferryjni/templates/native-adapter" "$work/native"
FERRY_PREFIX=$work/prefix CXX=$compiler CXXFLAGS=$flags "$work/native/build.sh"
"$work/prefix/bin/ferry" run "$work/native/template.yaml" --until-idle=0.5 | grep '^5 hello$'
for jar in java/{qdds,ferrion-adapter,ferrion-kit,ferrion-relay} \
    adapters/com.qel.ferrion.adapters.{file.FileAdapter/ferrion-adapter-file,sql.SqlAdapter/ferrion-adapter-sql}; do
    test -f "$work/prefix/share/ferryjni/$jar.jar"
done
"$work/prefix/bin/ferry" archive
cat >"$work/list.yaml" <<'EOT'
java: {options: ["-Xlog:class+load:file=loaded.txt"]}
adapters: {files: {class: com.qel.ferrion.adapters.file.FileAdapter}}
connections: {here: {adapter: files, properties: {directory: .}}}
EOT
"$work/prefix/bin/ferry" list streams "$work/list.yaml" --wait=0
grep "FileAdapter .*shared objects file (top)" "$work/loaded.txt"
