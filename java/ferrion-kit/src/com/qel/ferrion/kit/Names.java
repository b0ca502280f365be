package com.qel.ferrion.kit;

import java.util.Collection;
import java.util.Locale;

/** Finds the name that somebody probably meant. Case counts nothing. */
public final class Names {
    private Names() {}

    /**
     * The end of an error message about a name that is not known.
     *
     * @param unknown as it was written
     * @param known what could have been meant
     * @return {@code ; did you mean "x"?}, or an empty text when nothing known is near
     */
    public static String suggestion(String unknown, Collection<String> known) {
        String best = null;
        String wanted = unknown.toLowerCase(Locale.ROOT);
        int bestDistance = Math.max(2, unknown.length() / 3) + 1;
        for (String candidate : known) {
            int distance = distance(wanted, candidate.toLowerCase(Locale.ROOT), bestDistance);
            if (distance < Math.min(bestDistance, candidate.length())) {
                bestDistance = distance;
                best = candidate;
            }
        }
        return best == null ? "" : "; did you mean \"" + best + "\"?";
    }

    /** {@return names with commas between them; "none" if there are none} */
    static String list(Collection<String> names) {
        return names.isEmpty() ? "none" : String.join(", ", names);
    }

    /**
     * {@return how many characters are put in, left out, changed or swapped with their neighbours;
     * {@code limit} without a look at texts that differ so much in length alone}
     */
    private static int distance(String a, String b, int limit) {
        // "lat" for "position.lat": the last part alone is a near miss, too. So is "poll_ms" for
        // "poll", whose unit stands in the value.
        if (b.endsWith("." + a) || a.equals(b + "_ms")) {
            return 1;
        }
        if (Math.abs(a.length() - b.length()) >= limit) {
            return limit;
        }
        int[][] edits = new int[a.length() + 1][b.length() + 1];
        for (int i = 0; i <= a.length(); i++) {
            for (int j = 0; j <= b.length(); j++) {
                edits[i][j] = i + j;
                if (i > 0 && j > 0) {
                    int change = a.charAt(i - 1) == b.charAt(j - 1) ? 0 : 1;
                    edits[i][j] = Math.min(edits[i - 1][j - 1] + change,
                            Math.min(edits[i - 1][j], edits[i][j - 1]) + 1);
                }
                if (i > 1 && j > 1 && a.charAt(i - 1) == b.charAt(j - 2)
                        && a.charAt(i - 2) == b.charAt(j - 1)) {
                    edits[i][j] = Math.min(edits[i][j], edits[i - 2][j - 2] + 1);
                }
            }
        }
        return edits[a.length()][b.length()];
    }
}
