package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.Member;
import com.qel.dds.typecode.TypeCode;
import java.util.Arrays;
import java.util.List;

/**
 * A way from a sample to a value in it, taken apart once: "id", "position.lat", "readings[3]",
 * "tags[0].name", "grid[1][2]". Immutable; any thread. Where nothing of variable size lies in
 * front of the value its place is known beforehand, and an access is one read or write.
 */
public final class MemberPath {
    private static final int NO_OFFSET = -1;

    /** The struct that the path starts in. */
    final TypeLayout root;
    final TypeLayout target;
    /** For each step the container that is entered, and which of its children. */
    final TypeLayout[] containers;
    final int[] children;
    /** Indices given of an array that has more dimensions. */
    final int dimension;
    /** Of those indices, the element that they and zeros lead to. */
    private final int flat;
    /** Where the value starts, its padding behind it, in every sample; or NO_OFFSET. */
    final int offset;
    /** Of the root's runs of members the one that the path goes into. */
    final int run;
    /** Which of the root's members the value is; or -1 for what lies inside of one. */
    final int member;
    /** What the value's start is aligned to, once it has been reached. */
    final int alignment;
    private final String text;

    private MemberPath(TypeLayout root, TypeLayout target, TypeLayout[] containers, int[] children,
            int dimension, int flat, String text) {
        this.root = root;
        this.target = target;
        this.containers = containers;
        this.children = children;
        this.dimension = dimension;
        this.flat = flat;
        this.text = text;
        this.alignment = Math.max(1, target.scalarSize);
        this.offset = findOffset();
        this.run = children.length == 0 ? 0 : root.runs[children[0]];
        this.member = children.length == 1 ? children[0] : -1;
    }

    /**
     * @param type a struct, or an alias of one
     * @param path member names separated by ".", elements in "[]"; indices are checked against
     *     arrays now, against sequences when a sample is accessed
     * @return the path
     * @throws TypeException when the type has no such path
     */
    public static MemberPath of(TypeCode type, String path) {
        return TypeLayout.ofSample(type).path(path);
    }

    /**
     * The path of an element: {@code MemberPath.of(type, "readings").at(3)} is "readings[3]".
     *
     * @param indices one or more, into this sequence or array and what its elements are
     * @return a new path
     * @throws TypeException when there are more indices than sequences and dimensions
     */
    public MemberPath at(int... indices) {
        MemberPath path = this;
        for (int index : indices) {
            path = path.element(index, text + "[" + index + "]");
        }
        return path;
    }

    /** @return the type of the value, its aliases taken off */
    public TypeCode type() {
        return target.type;
    }

    /** @return the path as text */
    @Override
    public String toString() {
        return text;
    }

    /** Length of the array, or of what the indices given leave of it. */
    int arrayLength() {
        return target.dimensions[dimension];
    }

    static MemberPath parse(TypeLayout root, String path) {
        MemberPath at = new MemberPath(root, root, new TypeLayout[0], new int[0], 0, 0, path);
        int position = 0;
        while (true) {
            int end = position;
            while (end < path.length() && path.charAt(end) != '.' && path.charAt(end) != '[') {
                end++;
            }
            at = at.member(path.substring(position, end), path);
            while (end < path.length() && path.charAt(end) == '[') {
                int close = path.indexOf(']', end);
                at = at.element(index(path, end, close), path);
                end = close + 1;
            }
            if (end == path.length()) {
                return at;
            }
            if (path.charAt(end) != '.') {
                throw new TypeException("path \"" + path + "\": \".\" or \"[\" expected after \""
                        + path.substring(0, end) + "\"");
            }
            position = end + 1;
        }
    }

    private static int index(String path, int open, int close) {
        String digits = close < 0 ? "" : path.substring(open + 1, close);
        if (!digits.matches("[0-9]{1,10}") || Long.parseLong(digits) > Integer.MAX_VALUE) {
            throw new TypeException("path \"" + path + "\": no index behind \""
                    + path.substring(0, open + 1) + "\"");
        }
        return Integer.parseInt(digits);
    }

    private MemberPath member(String name, String path) {
        if (target.kind != Kind.STRUCT) {
            throw new TypeException("path \"" + path + "\": " + target.type
                    + " has no members, so no \"" + name + "\"");
        }
        List<Member> members = target.type.members();
        for (int i = 0; i < members.size(); i++) {
            if (members.get(i).name().equals(name)) {
                return step(target, i, path);
            }
        }
        throw new TypeException("path \"" + path + "\": " + target.type + " has no member \"" + name
                + "\"");
    }

    private MemberPath element(int index, String path) {
        if (index < 0) {
            throw new IndexOutOfBoundsException("path \"" + path + "\": negative index");
        }
        if (target.kind == Kind.SEQUENCE) {
            return step(target, index, path);
        }
        if (target.kind != Kind.ARRAY) {
            throw new TypeException("path \"" + path + "\": " + target.type + " has no elements");
        }
        if (index >= arrayLength()) {
            throw new IndexOutOfBoundsException("path \"" + path + "\": index " + index
                    + " of an array of " + arrayLength());
        }
        int element = flat * arrayLength() + index;
        return dimension + 1 == target.dimensions.length ? step(target, element, path)
                : new MemberPath(root, target, containers, children, dimension + 1, element, path);
    }

    private MemberPath step(TypeLayout container, int child, String path) {
        int depth = children.length;
        TypeLayout[] moreContainers = Arrays.copyOf(containers, depth + 1);
        int[] moreChildren = Arrays.copyOf(children, depth + 1);
        moreContainers[depth] = container;
        moreChildren[depth] = child;
        return new MemberPath(root, container.child(child), moreContainers, moreChildren, 0, 0,
                path);
    }

    private int findOffset() {
        long start = 0;
        for (int i = 0; i < children.length; i++) {
            TypeLayout container = containers[i];
            if (container.kind == Kind.STRUCT && container.runs[children[i]] == 0) {
                start = container.memberStart(children[i], start);
            } else if (container.kind == Kind.ARRAY
                    && (container.element.fixed || children[i] == 0)) {
                start = container.element.skipDefaults(start, children[i]);
            } else {
                return NO_OFFSET;
            }
        }
        start = TypeLayout.align(start, alignment);
        return start <= Integer.MAX_VALUE ? (int) start : NO_OFFSET;
    }
}
