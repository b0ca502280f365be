package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.Enumerator;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.Member;
import com.qel.dds.typecode.TypeCode;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.Comparator;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * A place in samples of one type, bound once: its path, its kind and, below a struct, its members.
 *
 * <p>Each reader and writer owns a tree of these and uses it on one thread at a time. Elements of
 * sequences and arrays are bound as they are first met; the first few are kept.
 */
final class Value {
    private static final int KEPT_ELEMENTS = 256;

    /** Path from the sample, empty for the sample itself. */
    final String path;
    /** What JSON has in front of the member: a brace or comma, its name and a colon. */
    final byte[] jsonLead;
    /** The kind with aliases taken off. */
    final Kind kind;
    /** The place in a sample; null for the sample itself. */
    final MemberPath place;
    /** Appends a number or boolean as text. */
    final Scalars.Appender scalar;
    /** Members of a struct by name, in their order; empty otherwise. */
    final Map<String, Value> members;
    /** The same without their names. */
    final Value[] ordered;
    /** Fixed number of elements of an array dimension, or the bound of a sequence (0: none). */
    final int size;

    private final TypeCode root;
    private final TypeCode type;
    private final int dimension;
    private final Map<String, Integer> enumValues;
    private final int[] sortedValues;
    private final String[] namesByValue;
    private Value[] elements = new Value[0];
    private long round;
    private long lastSeen = -1;

    private Value(TypeCode root, TypeCode declared, String path, MemberPath place, int dimension,
            char lead) {
        this.root = root;
        this.type = declared.resolve();
        this.path = path;
        this.jsonLead = (lead + "\"" + path.substring(path.lastIndexOf('.') + 1) + "\":")
                .getBytes(StandardCharsets.UTF_8);
        this.kind = type.kind();
        this.dimension = dimension;
        this.place = place;
        this.scalar = Scalars.appender(this);
        this.members = kind == Kind.STRUCT ? bindMembers() : Collections.emptyMap();
        this.ordered = members.values().toArray(new Value[0]);
        if (kind == Kind.ARRAY) {
            this.size = type.dimensions()[dimension];
        } else {
            this.size = kind == Kind.SEQUENCE ? type.bound() : 0;
        }
        this.enumValues = new HashMap<>();
        List<Enumerator> enumerators =
                new ArrayList<>(kind == Kind.ENUM ? type.enumerators() : List.of());
        enumerators.sort(Comparator.comparingInt(Enumerator::value));
        this.sortedValues = new int[enumerators.size()];
        this.namesByValue = new String[enumerators.size()];
        for (int i = 0; i < sortedValues.length; i++) {
            sortedValues[i] = enumerators.get(i).value();
            namesByValue[i] = enumerators.get(i).name();
            enumValues.put(namesByValue[i], sortedValues[i]);
        }
    }

    /** Another element of a collection, not of structs: only its place differs. */
    private Value(Value element, String path, MemberPath place) {
        this.root = element.root;
        this.type = element.type;
        this.path = path;
        this.jsonLead = element.jsonLead;
        this.kind = element.kind;
        this.dimension = element.dimension;
        this.place = place;
        this.scalar = Scalars.appender(this);
        this.members = element.members;
        this.ordered = element.ordered;
        this.size = element.size;
        this.enumValues = element.enumValues;
        this.sortedValues = element.sortedValues;
        this.namesByValue = element.namesByValue;
    }

    /** Binds a whole type: a struct, or an alias of one. */
    static Value bind(TypeCode type) {
        return new Value(type, type, "", null, 0, '{');
    }

    private Map<String, Value> bindMembers() {
        Map<String, Value> bound = new LinkedHashMap<>();
        for (Member member : type.members()) {
            String name = path.isEmpty() ? member.name() : path + "." + member.name();
            bound.put(member.name(), new Value(root, member.type(), name, MemberPath.of(root, name),
                    0, bound.isEmpty() ? '{' : ','));
        }
        return bound;
    }

    /** Whether the place holds elements, and so a single cell of a table cannot name its parts. */
    boolean isCollection() {
        return kind == Kind.SEQUENCE || kind == Kind.ARRAY;
    }

    /** Adds the places a table has columns for: everything but structs, which are taken apart. */
    void addColumns(List<Value> columns) {
        if (kind != Kind.STRUCT) {
            columns.add(this);
        }
        for (Value member : members.values()) {
            member.addColumns(columns);
        }
    }

    /** The place of one element of a sequence or array. */
    Value element(int index) {
        if (index < elements.length && elements[index] != null) {
            return elements[index];
        }
        String name = path + "[" + index + "]";
        if (index >= KEPT_ELEMENTS && elements.length > 0 && elements[0] != null
                && elements[0].kind != Kind.STRUCT) {
            return new Value(elements[0], name, place.at(index));
        }
        boolean inner = kind == Kind.ARRAY && dimension + 1 < type.dimensions().length;
        Value bound = new Value(root, inner ? type : type.content(), name, place.at(index),
                inner ? dimension + 1 : 0, ',');
        if (index < KEPT_ELEMENTS) {
            if (index >= elements.length) {
                int grown = Math.min(KEPT_ELEMENTS, Math.max(index + 1, 2 * elements.length));
                elements = Arrays.copyOf(elements, grown);
            }
            elements[index] = bound;
        }
        return bound;
    }

    /** Value of an enumerator; null when the enum has none of that name. */
    Integer enumValue(String name) {
        return enumValues.get(name);
    }

    /** Name of an enumerator; null when the enum has none of that value. */
    String enumName(int value) {
        int index = Arrays.binarySearch(sortedValues, value);
        return index < 0 ? null : namesByValue[index];
    }

    /** Names of all enumerators. */
    Set<String> enumNames() {
        return enumValues.keySet();
    }

    /** Begins another look at the members of this struct. @return what to give to them */
    long nextRound() {
        return ++round;
    }

    /** Whether this member is met for the first time in a round of its struct. */
    boolean firstIn(long structRound) {
        boolean first = lastSeen != structRound;
        lastSeen = structRound;
        return first;
    }
}
