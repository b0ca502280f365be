#!/usr/bin/env bash
# The native adapter of examples/, with a Java adapter in the same process, and that of the
# template, which needs no Java at all.
# usage: native_adapter.sh EXAMPLES BUILD_TREE COMPILER FLAGS
set -euo pipefail
examples=$1 tree=$2
export CXX=$3 CXXFLAGS=$4 FERRY_PREFIX=$tree PKG_CONFIG_PATH=$tree/lib/pkgconfig

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$examples"/native-adapter/* "$work"
cd "$work"
# The command of counter.yaml.
eval "$(sed -n "s|^#  *g++|$CXX $CXXFLAGS -std=c++17 -Wall -Wextra -Werror|p" counter.yaml)"
"$tree/bin/ferry" run counter.yaml --until-idle=0.5
{ echo value; seq 10; } | diff - counts.csv
# An error that the adapter reports reaches the user.
sed -i 's/int64 value/int64 other/' counter.yaml
if "$tree/bin/ferry" run counter.yaml --until-idle=0.5 2>errors; then exit 1; fi
grep 'the type has no int64 "value"' errors

cp -r "$tree/share/ferryjni/templates/native-adapter" template
cd template
./build.sh
for library in ../libcounter.so libtemplate.so; do
    if readelf --dynamic --wide "$library" | grep -E 'NEEDED.*(jvm|ferryjni)'; then
        exit 1
    fi
done
"$tree/bin/ferry" run template.yaml --until-idle=0.5 >printed
seq 5 | sed 's/$/ hello/' | diff - <(grep hello printed)
sed -i 's/count: 5/count: many/' template.yaml
if "$tree/bin/ferry" run template.yaml --until-idle=0.5 2>errors; then exit 1; fi
grep 'property "count" must be a whole number from 0 on, not "many"' errors
