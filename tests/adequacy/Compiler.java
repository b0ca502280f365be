import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.util.List;
import javax.tools.JavaCompiler;
import javax.tools.ToolProvider;

/** A compiler that stays warm: a line is class path, output folder and source, tabs between. */
final class Compiler {
    private Compiler() {}

    public static void main(String[] arguments) throws Exception {
        JavaCompiler javac = ToolProvider.getSystemJavaCompiler();
        var lines = new BufferedReader(new InputStreamReader(System.in));
        for (String line; (line = lines.readLine()) != null;) {
            String[] parts = line.split("\t");
            try (var files = javac.getStandardFileManager(diagnostic -> {}, null, null)) {
                var options = List.of("--release", "17", "-encoding", "UTF-8", "-nowarn",
                        "-proc:none", "-XDstringConcat=inline", "-classpath", parts[0],
                        "-d", parts[1]);
                System.out.println(javac.getTask(null, files, diagnostic -> {}, options, null,
                        files.getJavaFileObjects(parts[2])).call());
            }
        }
    }
}
