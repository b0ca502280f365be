package com.qel.dds.units;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNull;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Enumerator;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.Member;
import com.qel.dds.typecode.TypeCode;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.IntStream;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** Types as Java objects. */
public class TypeCodeTest {
    @Test
    public void equalTypesAreOneObject() {
        TypeCode again = TypeCode.fromIdl(Peer.ALL.toIdl(), "units::All");
        assertSame(Peer.ALL, again);
        assertSame(Peer.ALL, TypeCode.create_from_native(Peer.ALL.get_native_typecode()));
        assertNull(TypeCode.create_from_native(0));
        assertEquals(1, IntStream.range(0, 64).parallel()
                .mapToObj(i -> TypeCode.fromIdl("struct Race { sequence<long> ls; };", null))
                .distinct().count());
    }

    @Test
    public void typesTellWhatTheyAre() {
        TypeCode all = Peer.ALL;
        assertEquals("units::Base", all.base().name());
        assertTrue(all.keyed() && !all.appendable());
        assertEquals(new Member("id", TypeCode.fromIdl("struct L { long l; };", null)
                .member("l").type(), true), all.members().get(0));
        assertEquals(12, all.member("tag").type().bound());
        assertArrayEquals(new int[] {2, 2}, all.member("grid").type().dimensions());
        assertNull(all.member("nix"));
        TypeCode words = all.member("nested").type().content();
        assertEquals(Kind.ALIAS, words.kind());
        assertEquals("sequence<string>", words.resolve().toString());
        assertEquals(List.of(new Enumerator("RED", 5), new Enumerator("GREEN", 6),
                new Enumerator("BLUE", 2)),
                all.member("flats").type().content().member("col").type().enumerators());
    }

    private static String rejection(ThrowingRunnable use) {
        return assertThrows(TypeException.class, use).getMessage();
    }

    @Test
    public void errorsSayWhere() throws java.io.IOException {
        String second = rejection(() -> TypeCode.fromIdl("struct A {\n  nix b;\n};", null));
        assertTrue(second, second.startsWith("idl:2:"));
        String named = rejection(() -> TypeCode.fromIdl("struct A { long b; };", "B"));
        assertTrue(named, named.contains("B"));
        assertEquals("idl: no struct is declared",
                rejection(() -> TypeCode.fromIdl("enum E { A };", null)));
        rejection(() -> TypeCode.fromIdl("struct A \0{};", null));
        Path file = Files.createTempFile("units", ".idl");
        try {
            Files.writeString(file, "struct First { long a; }; struct Last { First f; };");
            assertEquals("Last", TypeCode.fromIdlFile(file, null).name());
            Files.writeString(file, "struct First { long long long a; };");
            String broken = rejection(() -> TypeCode.fromIdlFile(file, null));
            assertTrue(broken, broken.startsWith(file + ":1:"));
            Files.writeString(file, "struct A { long a; };\0");
            rejection(() -> TypeCode.fromIdlFile(file, null));
        } finally {
            Files.delete(file);
        }
        String gone = rejection(() -> TypeCode.fromIdlFile(file, null));
        assertTrue(gone, gone.contains(file.toString()));
    }
}
