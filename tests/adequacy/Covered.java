import java.io.File;
import java.util.Arrays;
import org.jacoco.core.analysis.Analyzer;
import org.jacoco.core.analysis.CoverageBuilder;
import org.jacoco.core.analysis.ICounter;
import org.jacoco.core.analysis.ISourceFileCoverage;
import org.jacoco.core.tools.ExecFileLoader;

/** Prints the lines with branches of the classes in some jars: source, line, branches, untaken. */
final class Covered {
    private Covered() {}

    public static void main(String[] arguments) throws Exception {
        ExecFileLoader taken = new ExecFileLoader();
        taken.load(new File(arguments[0]));
        CoverageBuilder sources = new CoverageBuilder();
        Analyzer analyzer = new Analyzer(taken.getExecutionDataStore(), sources);
        for (String jar : Arrays.asList(arguments).subList(1, arguments.length)) {
            analyzer.analyzeAll(new File(jar));
        }
        for (ISourceFileCoverage source : sources.getSourceFiles()) {
            for (int line = source.getFirstLine(); line <= source.getLastLine(); line++) {
                ICounter branches = source.getLine(line).getBranchCounter();
                if (branches.getTotalCount() > 0) {
                    System.out.println(source.getPackageName() + "/" + source.getName() + "\t"
                            + line + "\t" + branches.getTotalCount() + "\t"
                            + branches.getMissedCount());
                }
            }
        }
    }
}
