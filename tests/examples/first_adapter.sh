#!/usr/bin/env bash
# usage: first_adapter.sh EXAMPLES BUILD_TREE JAVAC
set -euo pipefail
examples=$1 tree=$2 javac=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$examples"/first-adapter/*.java "$examples"/first-adapter/*.yaml "$work"
cd "$work"
"$javac" -Xlint:all -Werror -cp "$tree/share/ferryjni/java/*" -d classes HeartbeatAdapter.java
"$tree/bin/ferry" run heartbeat.yaml --until-idle=0.5
cut -d, -f1 heartbeat.csv >beats
printf 'beat\n1\n2\n3\n4\n5\n' | diff - beats

# The kit's host gives no properties where a configuration has none.
cat >Bare.java <<'END'
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.kit.harness.TestHost;
import java.time.Duration;

class Bare {
    public static void main(String[] none) throws Exception {
        TypeCode type = TypeCode.fromIdl("struct H { int64 beat; int64 used_bytes; };", null);
        try (TestHost host = new TestHost(HeartbeatAdapter.class)) {
            host.connect("c").reader("s", type).await(1, Duration.ofSeconds(30));
        }
    }
}
END
"${javac%c}" -cp "$tree/share/ferryjni/java/*:classes" Bare.java
