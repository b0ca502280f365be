package com.qel.dds;

/** A point in time since 1970-01-01 UTC. Mutable; a new one is "no time". */
public final class Time_t {
    /** What {@link #sec} says when there is no time. */
    public static final int INVALID_SEC = -1;

    /** Seconds; {@link #INVALID_SEC} is no time, whatever the nanoseconds say. */
    public int sec = INVALID_SEC;
    /** Nanoseconds within the second, 0 to 999,999,999. */
    public int nanosec;

    /** Makes "no time". */
    public Time_t() {}

    /**
     * @param sec seconds
     * @param nanosec nanoseconds within the second
     */
    public Time_t(int sec, int nanosec) {
        this.sec = sec;
        this.nanosec = nanosec;
    }

    /** @param other whose time to take over */
    public void copyFrom(Time_t other) {
        sec = other.sec;
        nanosec = other.nanosec;
    }

    /** @return true unless this is "no time" */
    public boolean isValid() {
        return sec != INVALID_SEC;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof Time_t && sec == ((Time_t) other).sec
                && nanosec == ((Time_t) other).nanosec;
    }

    @Override
    public int hashCode() {
        return 31 * sec + nanosec;
    }

    @Override
    public String toString() {
        return isValid() ? java.time.Instant.ofEpochSecond(sec, nanosec & 0xFFFFFFFFL).toString()
                         : "no time";
    }
}
