package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.ArrayList;
import java.util.List;

/** Rejected properties: all that is wrong with them, at once. */
public final class SettingsException extends AdapterException {
    private static final long serialVersionUID = 1L;

    private final ArrayList<Problem> problems;

    /**
     * One fault of a property list.
     *
     * @param name of the property
     * @param text the fault in words, the name included; never a secret
     */
    public record Problem(String name, String text) implements java.io.Serializable {}

    SettingsException(String owner, List<Problem> problems) {
        super(message(owner, problems));
        this.problems = new ArrayList<>(problems);
    }

    private static String message(String owner, List<Problem> problems) {
        if (problems.size() == 1) {
            return owner + ": " + problems.get(0).text();
        }
        StringBuilder text = new StringBuilder(owner).append(": ").append(problems.size())
                .append(" properties are rejected:");
        problems.forEach(problem -> text.append("\n  ").append(problem.text()));
        return text.toString();
    }

    /** @return the faults, by name; at least one */
    public List<Problem> problems() {
        return List.copyOf(problems);
    }
}
