package com.qel.ferrion.adapters.sql;

import java.sql.SQLException;
import java.util.regex.Pattern;

/** Takes passwords out of what drivers say: their messages repeat URLs and properties. */
final class Secrets {
    /** What stands before the last {@code @} of a word behind {@code //}. */
    private static final Pattern BEFORE_AT = Pattern.compile("//\\S*@");
    private static final Pattern NAMED = Pattern.compile(
            "(?i)([\\w.]*(?:passw|pwd|secret|token)[\\w.]*[\"']?\\s*[=:]\\s*)"
            + "(\"[^\"]*\"|'[^']*'|[^\\s&;,)]+)");

    private Secrets() {}

    static String mask(String text) {
        String masked = text;
        if (masked.indexOf('@') >= 0) {
            masked = BEFORE_AT.matcher(masked).replaceAll("//***@");
        }
        return NAMED.matcher(masked).replaceAll("$1***");
    }

    /**
     * A failure as the cause of another one: of a batch the reason alone, which does not hold all
     * the batch's values, and a copy where its texts hold a secret.
     */
    static SQLException cause(SQLException failure) {
        SQLException reason = last(failure);
        for (Throwable each = reason; each != null; each = each.getCause()) {
            String text = String.valueOf(each.getMessage());
            if (!mask(text).equals(text)) {
                SQLException copy = new SQLException(mask(String.valueOf(reason.getMessage())),
                        reason.getSQLState(), reason.getErrorCode());
                copy.setStackTrace(reason.getStackTrace());
                return copy;
            }
        }
        return reason;
    }

    /** A failure in one line; of a batch the reason, not the values. */
    static String text(Throwable failure) {
        String text = failure instanceof SQLException
                ? String.valueOf(last((SQLException) failure).getMessage())
                : String.valueOf(failure);
        return mask(text).strip().replaceAll("\\s*\\R\\s*", "; ");
    }

    private static SQLException last(SQLException failure) {
        SQLException last = failure;
        while (last.getNextException() != null) {
            last = last.getNextException();
        }
        return last;
    }
}
