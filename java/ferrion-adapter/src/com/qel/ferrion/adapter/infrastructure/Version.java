package com.qel.ferrion.adapter.infrastructure;

/** An adapter's version. Immutable. */
public final class Version {
    private final int major;
    private final int minor;
    private final int release;
    private final int revision;

    /**
     * @param major changes with what breaks its users
     * @param minor changes with new features
     * @param release changes with every delivery
     * @param revision changes with every repair
     */
    public Version(int major, int minor, int release, int revision) {
        this.major = major;
        this.minor = minor;
        this.release = release;
        this.revision = revision;
    }

    /** @return the first number */
    public int getMajorNumber() {
        return major;
    }

    /** @return the second number */
    public int getMinorNumber() {
        return minor;
    }

    /** @return the third number */
    public int getReleaseNumber() {
        return release;
    }

    /** @return the fourth number */
    public int getRevisionNumber() {
        return revision;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof Version && major == ((Version) other).major
                && minor == ((Version) other).minor && release == ((Version) other).release
                && revision == ((Version) other).revision;
    }

    @Override
    public int hashCode() {
        return ((major * 31 + minor) * 31 + release) * 31 + revision;
    }

    @Override
    public String toString() {
        return major + "." + minor + "." + release + "." + revision;
    }
}
