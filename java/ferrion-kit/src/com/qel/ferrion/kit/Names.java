package com.qel.ferrion.kit;

import java.util.Collection;
import java.util.Locale;

/** Finds the name somebody probably meant. */
public final class Names {
    private Names() {}

    /**
     * The end of an error message about a name that is not known.
     *
     * @param unknown as it was written
     * @param known what could have been meant
     * @return "; did you mean 'x'?", or an empty text when nothing known is close
     */
    public static String suggestion(String unknown, Collection<String> known) {
        String best = null;
        int bestDistance = Integer.MAX_VALUE;
        String wanted = unknown.toLowerCase(Locale.ROOT);
        for (String candidate : known) {
            int distance = distance(wanted, candidate.toLowerCase(Locale.ROOT));
            // "lat" for "position.lat": the last part alone is a near miss too.
            if (candidate.toLowerCase(Locale.ROOT).endsWith("." + wanted)) {
                distance = 1;
            }
            if (distance < bestDistance) {
                bestDistance = distance;
                best = candidate;
            }
        }
        boolean close = best != null && bestDistance <= Math.max(2, unknown.length() / 2);
        return close ? "; did you mean '" + best + "'?" : "";
    }

    /** Levenshtein distance, one row at a time. */
    private static int distance(String a, String b) {
        int[] row = new int[b.length() + 1];
        for (int j = 0; j <= b.length(); j++) {
            row[j] = j;
        }
        for (int i = 1; i <= a.length(); i++) {
            int diagonal = row[0];
            row[0] = i;
            for (int j = 1; j <= b.length(); j++) {
                int above = row[j];
                int substituted = diagonal + (a.charAt(i - 1) == b.charAt(j - 1) ? 0 : 1);
                row[j] = Math.min(substituted, Math.min(above, row[j - 1]) + 1);
                diagonal = above;
            }
        }
        return row[b.length()];
    }
}
