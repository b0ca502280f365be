package com.qel.ferrion.adapters.file;

import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.attribute.FileTime;
import java.util.TreeMap;

/**
 * Files that had one name in turn. Who renames them puts a number or a date behind the name; which
 * came first their last writes say, as numbers may rise or be moved on.
 */
final class Rotation {
    private static final String BEHIND_NAME = "[.-][0-9][0-9T:_.-]*";

    private Rotation() {}

    /**
     * The file that had the name after another one.
     *
     * @param path the name
     * @param number of the other file, which is in the same folder
     * @return the oldest of those renamed files that were written later; the name itself when there
     *     is none, or the other file has gone
     */
    static Path behind(Path path, long number) throws IOException {
        FileTime written = null;
        TreeMap<FileTime, Path> renamed = new TreeMap<>();
        try (DirectoryStream<Path> names = Files.newDirectoryStream(path.getParent())) {
            for (Path name : names) {
                try {
                    if (FilePosition.numberOf(name) == number) {
                        written = Files.getLastModifiedTime(name);
                    } else if (isRenamed(path, name)) {
                        renamed.put(Files.getLastModifiedTime(name), name);
                    }
                } catch (NoSuchFileException moved) {
                    // It is found under its next name, now or the next time.
                }
            }
        }
        var next = written == null ? null : renamed.higherEntry(written);
        return next == null ? path : next.getValue();
    }

    private static boolean isRenamed(Path path, Path name) {
        String base = path.getFileName().toString();
        String text = name.getFileName().toString();
        return text.startsWith(base) && text.substring(base.length()).matches(BEHIND_NAME)
                && Files.isRegularFile(name);
    }
}
