package com.qel.ferrion.kit;

import com.qel.ferrion.kit.AdapterSettings.Role;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.Map;
import java.util.TreeMap;

/**
 * What {@code ferry check} asks of the adapters' declarations, in a process of its own: an adapter
 * is not made for that, only its class is loaded.
 *
 * <p>With arguments, names of classes, it prints what they declare. Without, it reads property
 * lists from its input and prints what is wrong with them, both as fields that end with NUL:
 * class, role, number of properties, their names and values; then number of the list, name and
 * fault.
 */
final class SettingsTool {
    private static final long LIMIT_MS = 10_000;

    private SettingsTool() {}

    public static void main(String[] classes) throws IOException {
        // Classes of adapters may print when they are loaded.
        PrintStream out = new PrintStream(new FileOutputStream(FileDescriptor.out), false,
                StandardCharsets.UTF_8);
        System.setOut(System.err);
        Thread limit = new Thread(SettingsTool::endLate, "limit");
        limit.setDaemon(true);
        limit.start();
        for (String name : classes) {
            AdapterSettings declared = declaredBy(name);
            out.println(name + (declared == null ? "\n  declares no settings" : ""));
            for (Role role : declared == null ? new Role[0] : Role.values()) {
                describe(role, declared.declared(role), out);
            }
        }
        if (classes.length == 0) {
            check(new String(System.in.readAllBytes(), StandardCharsets.UTF_8).split("\0", -1), out);
        }
        out.flush();
        // Threads that a class has started do not matter.
        System.exit(0);
    }

    /** The process that waits for this one is not to wait for a class that never gets ready. */
    private static void endLate() {
        try {
            Thread.sleep(LIMIT_MS);
        } catch (InterruptedException e) {
            // Sooner, then.
        }
        Runtime.getRuntime().halt(1);
    }

    /** @return null when the class has none, or cannot be loaded, which making it will tell */
    private static AdapterSettings declaredBy(String name) {
        try {
            return (AdapterSettings) Class.forName(name).getField("SETTINGS").get(null);
        } catch (ReflectiveOperationException | RuntimeException | LinkageError none) {
            return null;
        }
    }

    private static void describe(Role role, SettingSet set, PrintStream out) {
        if (!set.settings().isEmpty()) {
            out.println("  " + role.name().toLowerCase(java.util.Locale.ROOT));
        }
        for (Setting<?> setting : set.settings()) {
            out.println("    " + setting + ": " + setting.allowed()
                    + (setting.isRequired() ? "; required" : "")
                    + (setting.defaultText() != null ? "; default " + setting.defaultText() : "")
                    + (setting.isChangeable() ? "; may change in use" : "") + "\n        "
                    + setting.help());
        }
    }

    private static void check(String[] fields, PrintStream out) {
        int list = 0;
        for (int at = 0; at + 2 < fields.length; list++) {
            AdapterSettings declared = declaredBy(fields[at]);
            Role role = Role.valueOf(fields[at + 1]);
            int end = at + 3 + 2 * Integer.parseInt(fields[at + 2]);
            Map<String, String> texts = new TreeMap<>();
            for (at += 3; at < end; at += 2) {
                if (!fields[at].startsWith(Setting.HOST_PREFIX)) {
                    texts.put(fields[at], fields[at + 1]);
                }
            }
            try {
                if (declared != null) {
                    declared.of(role).parse("", texts, null);
                }
            } catch (SettingsException refused) {
                for (SettingsException.Problem problem : refused.problems()) {
                    out.print(list + "\0" + problem.name() + "\0" + problem.text() + "\0");
                }
            }
        }
    }
}
