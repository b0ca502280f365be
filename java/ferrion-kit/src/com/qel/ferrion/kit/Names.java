package com.qel.ferrion.kit;

import java.util.Arrays;
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
            int distance = distance(wanted, candidate.toLowerCase(Locale.ROOT));
            if (distance < Math.min(bestDistance, candidate.length())) {
                bestDistance = distance;
                best = candidate;
            }
        }
        return best == null ? "" : "; did you mean \"" + best + "\"?";
    }

    /** Characters that are put in, left out, changed or swapped with their neighbours. */
    private static int distance(String wanted, String candidate) {
        // "lat" for "position.lat": the last part alone is a near miss, too. So is "poll_ms" for
        // "poll", whose unit stands in the value.
        if (candidate.endsWith("." + wanted) || wanted.equals(candidate + "_ms")) {
            return 1;
        }
        int[] beforeLast = null;
        int[] last = new int[candidate.length() + 1];
        Arrays.setAll(last, j -> j);
        for (int i = 1; i <= wanted.length(); i++) {
            int[] row = new int[candidate.length() + 1];
            row[0] = i;
            for (int j = 1; j <= candidate.length(); j++) {
                boolean same = wanted.charAt(i - 1) == candidate.charAt(j - 1);
                row[j] = Math.min(last[j - 1] + (same ? 0 : 1), Math.min(last[j], row[j - 1]) + 1);
                if (isSwapped(wanted, i, candidate, j)) {
                    row[j] = Math.min(row[j], beforeLast[j - 2] + 1);
                }
            }
            beforeLast = last;
            last = row;
        }
        return last[candidate.length()];
    }

    private static boolean isSwapped(String a, int i, String b, int j) {
        return i > 1 && j > 1 && a.charAt(i - 1) == b.charAt(j - 2)
                && a.charAt(i - 2) == b.charAt(j - 1);
    }
}
