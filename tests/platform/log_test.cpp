// The logger: what a line looks like, and that lines of threads do not mix.
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

#include "core_fixture.h"

namespace {

// What `work` writes to standard error: a pipe, which takes a long line in parts.
template<typename Work> std::string standardErrorOf(const Work &work)
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    const int saved = dup(2);
    dup2(ends[1], 2);
    close(ends[1]);
    std::string text;
    std::thread reader([&text, end = ends[0]] {
        char block[4096];
        for (ssize_t count = 1; (count = read(end, block, sizeof block)) > 0;) {
            text.append(block, static_cast<size_t>(count));
        }
        close(end);
    });
    work();
    dup2(saved, 2); // closes the pipe's last writer
    close(saved);
    reader.join();
    return text;
}

TEST(Log, RendersEachMessageAsOneLine)
{
    Lines lines;
    const char *none = nullptr;
    const std::string longText(100000, 'x');
    QELLog_printContextAndMsg("ctx", &QEL_LOG_ANY_s, "text");
    QELLog_printContextAndMsg("ctx", &QEL_LOG_ANY_FAILURE_s, "text");
    QELLog_printContextAndMsg("ctx", &QEL_LOG_CREATION_FAILURE_s, "thing");
    QELLog_printContextAndMsg("ctx", &QEL_OSAPI_MEMORY_LOG_OUT_OF_HEAP_ARRAY_dd, 3, -4);
    QELLog_printContextAndMsg(nullptr, &QEL_LOG_ANY_s, "no context");
    QELLog_printContextAndMsg("ctx", &QEL_LOG_ANY_s, none);
    QELLog_printContextAndMsg("100%d", &QEL_LOG_ANY_s, "%s %n");
    QELLog_printContextAndMsg("ctx", &QEL_LOG_ANY_s, longText.c_str());
    QELLog_debug("free %d\n", 5);
    QELLog_debug("a\nb\tc\r\x1b[0m\x7f \xc3\xa4 %s", "\n");
    QELLog_debug("%s", std::string(5000, '\n').c_str());
    const QELLogMessage empty{9, nullptr};
    QELLog_printContextAndMsg("ctx", &empty);
    QELLog_debug("%s %ls", "a", L"\u00e4"); // the locale has no such letter
    std::string escaped;
    for (int i = 0; i < 4999; ++i) { // the last one ends the line
        escaped += "\\n";
    }
    EXPECT_EQ(lines.all,
              (std::vector<std::string>{
                  "ctx:text", "ctx:!text", "ctx:!create thing",
                  "ctx:!allocate array of 3 elements of -4 bytes", "no context", "ctx:(null)",
                  "100%d:%s %n", "ctx:" + longText, "free 5", "a\\nb\\tc\\r\\x1b[0m\\x7f \xc3\xa4 ",
                  escaped, "ctx:(no message)", "(message that cannot be printed)"}));
}

// What there is room for comes, and nothing is written beyond it.
TEST(Log, CutsALineForWhichMemoryIsShort)
{
    const std::string large(64U << 20U, 'x');
    const std::string controls(8U << 20U, '\t'); // have room until they are escaped
    Lines lines;
    {
        const Limited limited(RLIMIT_DATA, dataSize() + (28U << 20U));
        const std::unique_ptr<void, decltype(&std::free)> more(std::malloc(large.size()),
                                                               std::free);
        if (more != nullptr) {
            GTEST_SKIP() << "valgrind lets a process pass this limit";
        }
        QELLog_printContextAndMsg("ctx", &QEL_LOG_ANY_s, large.c_str());
        QELLog_printContextAndMsg(large.c_str(), &QEL_LOG_ANY_s, "x");
        QELLog_debug("%s", controls.c_str());
    }
    EXPECT_EQ(lines.all, (std::vector<std::string>{"ctx:" + std::string(1018, 'x'),
                                                   std::string(1022, 'x') + ":x",
                                                   std::string(controls.size(), ' ')}));
}

TEST(Log, KeepsLinesOfThreadsApart)
{
    constexpr int threadCount = 4;
    constexpr int lineCount = 500;
    const auto body = [](int t) {
        return std::string(static_cast<size_t>(2000 * (t + 1)), static_cast<char>('a' + t));
    };
    std::istringstream text(standardErrorOf([&body] {
        onThreads(threadCount, [&body](int t) {
            for (int i = 0; i < lineCount; ++i) {
                QELLog_printContextAndMsg("t", &QEL_LOG_ANY_s, body(t).c_str());
            }
        });
    }));
    std::map<std::string, int> counts;
    for (std::string line; std::getline(text, line);) {
        ++counts[line];
    }
    EXPECT_EQ(counts.size(), size_t{threadCount});
    for (int t = 0; t < threadCount; ++t) {
        EXPECT_EQ(counts["t:" + body(t)], lineCount);
    }
}

// After setSink returned nobody is inside the earlier sink, so its data may go.
TEST(Log, LeavesASinkBeforeItIsReplaced)
{
    struct Sink {
        std::atomic<bool> alive{true};
        std::atomic<int> lines{0};
        std::atomic<int> late{0};
    };
    const QELLogSink sink = [](void *data, const char *, size_t) {
        auto *self = static_cast<Sink *>(data);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        self->late += self->alive ? 0 : 1;
        ++self->lines;
    };
    std::array<Sink, 200> sinks;
    std::atomic<bool> stop{false};
    const auto log = [&stop] {
        for (; !stop; std::this_thread::yield()) {
            QELLog_debug("x");
        }
    };
    std::thread loggers[] = {std::thread(log), std::thread(log)};
    for (size_t i = 0; i < sinks.size(); ++i) {
        QELLog_setSink(sink, &sinks[i]);
        if (i > 0) {
            sinks[i - 1].alive = false;
        }
        while (sinks[i].lines == 0) {
            std::this_thread::yield();
        }
    }
    stop = true;
    for (std::thread &logger : loggers) {
        logger.join();
    }
    QELLog_setSink(nullptr, nullptr);
    for (const Sink &each : sinks) {
        EXPECT_EQ(each.late, 0);
    }
}

TEST(Log, PrintsWhatASinkLogsItself)
{
    const std::string text = standardErrorOf([] {
        QELLog_setSink([](void *, const char *line, size_t) { QELLog_debug("again %s", line); },
                       nullptr);
        QELLog_debug("one");
        QELLog_setSink(nullptr, nullptr);
    });
    EXPECT_EQ(text, "again one\n");
    const int saved = dup(2);
    close(2);
    QELLog_debug("to nobody");
    dup2(saved, 2);
    close(saved);
}

} // namespace
