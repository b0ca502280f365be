package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Enumerator;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.Member;
import com.qel.dds.typecode.TypeCode;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.ConcurrentHashMap;

/**
 * How values of a resolved type lie in CDR. Immutable, one per type.
 *
 * <p>CDR aligns every value to its size, counted from the start of the buffer, so how many bytes a
 * value takes depends on where it starts modulo 8 and nothing else: hence tables of 8 entries. A
 * value "starts" where the one before it ended, in front of its own padding.
 */
final class TypeLayout {
    private static final int RESIDUES = 8;
    private static final int MASK = RESIDUES - 1;
    private static final int MAX_CACHED_PATHS = 1024;
    private static final ConcurrentHashMap<TypeCode, TypeLayout> LAYOUTS =
            new ConcurrentHashMap<>();

    final TypeCode type;
    final Kind kind;
    /** Bytes of a scalar or enum; of the count in front of a string or sequence; else 0. */
    final int scalarSize;
    /** Bits of a signed number that holds every value of an integer or enum; 0 for other kinds. */
    final int integerBits;
    /** Every value takes the same bytes: no string or sequence inside. */
    final boolean fixed;
    /** A default value is all zero bytes. */
    final boolean zeroDefault;
    /** Greatest alignment of anything inside. */
    final int alignment;
    /** No value takes fewer bytes, padding not counted. */
    final long minimum;
    /** Bytes of a default value with its leading padding; of every value when fixed. */
    final long[] size;
    /** Of a struct. */
    final TypeLayout[] members;
    /**
     * Of a struct, whose members come in runs: each ends with a member of variable size, or the
     * last one. Where a run starts says where all of its members do.
     */
    final int[] runs;
    /** Of each run the number of members up to its end. */
    final int[] runEnds;
    /** Bytes of each run's default values. */
    private final long[][] runSizes;
    /** Distance of each member's start from that of its run. */
    private final long[][] offsets;
    /** Of a sequence or array. */
    final TypeLayout element;
    /** Of an array, all dimensions together. */
    final int elementCount;
    final int[] dimensions;
    /** Of a string or sequence, 0 for none. */
    final int bound;
    /** Of an enum: its values in ascending order, the names that belong to them, the first one. */
    final int[] enumValues;
    final String[] enumNames;
    final int defaultEnum;
    /** Of a member with a default of its own: the value, without padding in front; else null. */
    final byte[] initial;
    /** Paths that were given as text, so that they are taken apart only once. */
    private final ConcurrentHashMap<String, MemberPath> paths = new ConcurrentHashMap<>();

    private TypeLayout(TypeCode type, byte[] initial) {
        this.type = type;
        this.initial = initial;
        kind = type.kind();
        scalarSize = kind.size();
        integerBits = kind.integerBits();
        bound = type.bound();
        dimensions = type.dimensions();
        element = type.content() != null ? of(type.content()) : null;
        List<Enumerator> enumerators = type.enumerators();
        enumValues = new int[enumerators.size()];
        for (int i = 0; i < enumValues.length; i++) {
            enumValues[i] = enumerators.get(i).value();
        }
        Arrays.sort(enumValues);
        enumNames = new String[enumValues.length];
        for (Enumerator enumerator : enumerators) {
            enumNames[Arrays.binarySearch(enumValues, enumerator.value())] = enumerator.name();
        }
        defaultEnum = enumerators.isEmpty() ? 0 : enumerators.get(0).value();
        List<Member> declared = type.members();
        members = new TypeLayout[declared.size()];
        for (int i = 0; i < members.length; i++) {
            byte[] own = type.memberDefault(i);
            TypeCode member = declared.get(i).type();
            members[i] = own == null ? of(member) : new TypeLayout(member.resolve(), own);
        }
        int count = kind == Kind.ARRAY ? 1 : 0;
        for (int dimension : dimensions) {
            count *= dimension;
        }
        elementCount = count;
        fixed = isFixed();
        zeroDefault = isZeroDefault();
        alignment = greatestAlignment();
        minimum = leastSize();
        runs = runs();
        runEnds = runEnds();
        runSizes = new long[runEnds.length][RESIDUES];
        offsets = new long[members.length][RESIDUES];
        for (int run = 0; run < runEnds.length; run++) {
            layOutRun(run);
        }
        size = new long[RESIDUES];
        for (int residue = 0; residue < RESIDUES; residue++) {
            size[residue] = layOut(residue);
        }
    }

    /** Layout of a type with its aliases taken off. */
    static TypeLayout of(TypeCode type) {
        TypeCode resolved = type.resolve();
        TypeLayout known = LAYOUTS.get(resolved);
        if (known != null) {
            return known;
        }
        TypeLayout made = new TypeLayout(resolved, null);
        TypeLayout first = LAYOUTS.putIfAbsent(resolved, made);
        return first != null ? first : made;
    }

    /** Layout of a type that samples may have. */
    static TypeLayout ofSample(TypeCode type) {
        if (type == null) {
            throw new NullPointerException("the type is null");
        }
        TypeLayout layout = of(type);
        if (layout.kind != Kind.STRUCT) {
            throw new TypeException(type + " is no struct, so it cannot be the type of samples");
        }
        return layout;
    }

    /** Least value of an integer kind. */
    long integerMin() {
        boolean unsigned = integerBits % 8 == 1 || kind == Kind.ULONGLONG;
        return unsigned ? 0 : -1L << (integerBits - 1);
    }

    /** Greatest value of an integer kind that a long can hold. */
    long integerMax() {
        return -1L >>> (65 - integerBits);
    }

    static long align(long position, int alignment) {
        return (position + alignment - 1) & -alignment;
    }

    /** A number, character, boolean or enum. */
    boolean isScalar() {
        return scalarSize > 0 && kind != Kind.STRING && kind != Kind.SEQUENCE;
    }

    /** The path of a text, in this type. */
    MemberPath path(String text) {
        MemberPath known = paths.get(text);
        if (known != null) {
            return known;
        }
        MemberPath made = MemberPath.parse(this, text);
        if (paths.size() < MAX_CACHED_PATHS) {
            paths.put(text, made);
        }
        return made;
    }

    /** Layout of a member of a struct or an element of a sequence or array. */
    TypeLayout child(int index) {
        return kind == Kind.STRUCT ? members[index] : element;
    }

    /** Name of an enum's value, or null. */
    String enumName(int value) {
        int index = Arrays.binarySearch(enumValues, value);
        return index < 0 ? null : enumNames[index];
    }

    /** Bytes of a default value that starts at a position, its padding included. */
    long defaultSize(long position) {
        return size[(int) position & MASK];
    }

    /** The member that a run begins with. */
    int firstOf(int run) {
        return run == 0 ? 0 : runEnds[run - 1];
    }

    /** Where a member starts whose run does at a position. */
    long memberStart(int member, long runStart) {
        return runStart + offsets[member][(int) runStart & MASK];
    }

    /** Where a run of default values ends that starts at a position. */
    long skipRun(int run, long runStart) {
        return runStart + runSizes[run][(int) runStart & MASK];
    }

    /** Where {@code count} values end of which each takes the bytes of a default one. */
    long skipDefaults(long position, long count) {
        if (count == 0) {
            return position;
        }
        // The first ends at the same residue of the greatest alignment wherever it started, so the
        // following ones all take as many bytes as the second.
        long second = position + defaultSize(position);
        return second + (count - 1) * defaultSize(second);
    }

    private boolean isFixed() {
        boolean all = kind != Kind.STRING && kind != Kind.SEQUENCE;
        for (TypeLayout member : members) {
            all = all && member.fixed;
        }
        return all && (kind != Kind.ARRAY || element.fixed);
    }

    private boolean isZeroDefault() {
        boolean all = kind != Kind.STRING && defaultEnum == 0 && initial == null;
        for (TypeLayout member : members) {
            all = all && member.zeroDefault;
        }
        return all && (kind != Kind.ARRAY || element.zeroDefault);
    }

    private int greatestAlignment() {
        int greatest = Math.max(1, scalarSize);
        for (TypeLayout member : members) {
            greatest = Math.max(greatest, member.alignment);
        }
        return element != null ? Math.max(greatest, element.alignment) : greatest;
    }

    private long leastSize() {
        long least = kind == Kind.STRING ? scalarSize + 1 : scalarSize;
        for (TypeLayout member : members) {
            least += member.minimum;
        }
        return kind == Kind.ARRAY ? element.minimum * elementCount : least;
    }

    private int[] runs() {
        int[] found = new int[members.length];
        for (int i = 1; i < found.length; i++) {
            found[i] = found[i - 1] + (members[i - 1].fixed ? 0 : 1);
        }
        return found;
    }

    private int[] runEnds() {
        int[] found = new int[members.length == 0 ? 0 : runs[members.length - 1] + 1];
        for (int i = 0; i < members.length; i++) {
            found[runs[i]] = i + 1;
        }
        return found;
    }

    private long layOut(int residue) {
        if (kind == Kind.ARRAY) {
            return element.skipDefaults(residue, elementCount) - residue;
        }
        long end = align(residue, Math.max(1, scalarSize))
                + (initial != null ? initial.length
                        : scalarSize + (kind == Kind.STRING ? 1 : 0));
        for (int run = 0; run < runEnds.length; run++) {
            end = skipRun(run, end);
        }
        return end - residue;
    }

    private void layOutRun(int run) {
        for (int residue = 0; residue < RESIDUES; residue++) {
            long end = residue;
            for (int i = firstOf(run); i < runEnds[run]; i++) {
                offsets[i][residue] = end - residue;
                end += members[i].defaultSize(end);
            }
            runSizes[run][residue] = end - residue;
        }
    }
}
