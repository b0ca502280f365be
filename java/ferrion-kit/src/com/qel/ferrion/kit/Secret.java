package com.qel.ferrion.kit;

import java.util.Objects;

/** A password or the like: it does not show itself in logs and messages. Immutable. */
public final class Secret {
    private final String text;

    /**
     * @param text what must not be shown; not null
     */
    public Secret(String text) {
        this.text = Objects.requireNonNull(text);
    }

    /** @return what must not be shown */
    public String reveal() {
        return text;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof Secret && ((Secret) other).text.equals(text);
    }

    @Override
    public int hashCode() {
        return text.hashCode();
    }

    @Override
    public String toString() {
        return "***";
    }
}
