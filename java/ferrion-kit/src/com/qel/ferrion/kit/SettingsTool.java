package com.qel.ferrion.kit;

import com.qel.ferrion.kit.AdapterSettings.Role;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Properties;

/**
 * What {@code ferry check} asks of the adapters' declarations, in a process of its own: an adapter
 * is not made for that, only its class is loaded.
 *
 * <p>With arguments, names of classes, it prints what they declare. Without, it reads property
 * lists from its input and prints what is wrong with them. Both are fields that end with NUL:
 *
 * <ul>
 * <li>of a class: its name, {@code ok}, {@code none} (it declares no settings) or {@code missing}
 *     (it cannot be loaded), the reason of {@code missing}, and how many settings follow, each as
 *     the fields of a FERRY_Setting in their order, without unit; "=" stands before a default
 * <li>of a property list in the input: class, role, number of properties, their names and values
 * <li>of a fault: number of the list, name of the property, fault; two empty fields for a class
 *     that does not exist
 * </ul>
 */
final class SettingsTool {
    private static final long LIMIT_MS = 10_000;
    private static final int REQUIRED = 1;
    private static final int CHANGEABLE = 2;

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
            describe(name, out);
        }
        if (classes.length == 0) {
            String lists = new String(System.in.readAllBytes(), StandardCharsets.UTF_8);
            check(lists.split("\0", -1), out);
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

    /** @return null for a class that has none */
    private static AdapterSettings declaredBy(String name) throws ClassNotFoundException {
        return AdapterSettings.of(Class.forName(name));
    }

    private static void describe(String name, PrintStream out) {
        try {
            AdapterSettings declared = declaredBy(name);
            Map<Setting<?>, Integer> roles = new LinkedHashMap<>();
            for (Role role : declared == null ? new Role[0] : Role.values()) {
                declared.declared(role).settings()
                        .forEach(setting -> roles.merge(setting, role.bit, Integer::sum));
            }
            print(out, name, declared == null ? "none" : "ok", "", roles.size());
            roles.forEach((setting, bits) -> describe(setting, bits, out));
        } catch (ClassNotFoundException missing) {
            print(out, name, "missing", "there is no such class", 0);
        } catch (LinkageError unusable) {
            Throwable reason = unusable.getCause() == null ? unusable : unusable.getCause();
            print(out, name, "missing", reason, 0);
        }
    }

    private static void describe(Setting<?> setting, int roles, PrintStream out) {
        Values<?> values = setting.values();
        String absent = setting.defaultText();
        print(out, setting.name(), roles, values.kind().ordinal(),
                String.join(" ", values.words()), values.low(), values.high(),
                absent == null ? "" : "=" + absent,
                (setting.isRequired() ? REQUIRED : 0) + (setting.isChangeable() ? CHANGEABLE : 0),
                setting.help(), setting.allowed());
    }

    private static void print(PrintStream out, Object... fields) {
        for (Object field : fields) {
            out.print(field + "\0");
        }
    }

    private static void check(String[] fields, PrintStream out) {
        int list = 0;
        for (int at = 0; at + 2 < fields.length; list++) {
            String name = fields[at];
            Role role = Role.of(Integer.parseInt(fields[at + 1]));
            int end = at + 3 + 2 * Integer.parseInt(fields[at + 2]);
            Properties properties = new Properties();
            for (at += 3; at < end; at += 2) {
                properties.setProperty(fields[at], fields[at + 1]);
            }
            try {
                AdapterSettings declared = declaredBy(name);
                if (declared != null) {
                    declared.of(role).parse("", properties);
                }
            } catch (SettingsException rejected) {
                for (SettingsException.Problem problem : rejected.problems()) {
                    print(out, list, problem.name(), problem.text());
                }
            } catch (ClassNotFoundException missing) {
                print(out, list, "", "");
            } catch (LinkageError unusable) {
                // Whoever makes the adapter reports that.
            }
        }
    }
}
