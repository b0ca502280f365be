// The logger: what a line looks like, and that lines of threads do not mix.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "qddscore/log.h"

namespace {

class Lines {
public:
    Lines()
    {
        QELLog_setSink(add, this);
    }
    ~Lines()
    {
        QELLog_setSink(nullptr, nullptr);
    }

    std::vector<std::string> all;

private:
    static void add(void *self, const char *line, size_t length)
    {
        EXPECT_EQ(std::string(line).size(), length);
        static_cast<Lines *>(self)->all.emplace_back(line, length);
    }
};

// Standard error of the process while the object lives: a pipe, which takes a long line in parts.
class StandardError {
public:
    StandardError() : saved_(dup(2))
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        dup2(ends[1], 2);
        close(ends[1]);
        reader_ = std::thread([this, end = ends[0]] {
            char block[4096];
            for (ssize_t count = 1; (count = read(end, block, sizeof block)) > 0;) {
                text_.append(block, static_cast<size_t>(count));
            }
            close(end);
        });
    }

    ~StandardError()
    {
        text();
    }

    const std::string &text()
    {
        if (reader_.joinable()) {
            dup2(saved_, 2); // closes the pipe's last writer
            close(saved_);
            reader_.join();
        }
        return text_;
    }

private:
    int saved_;
    std::string text_;
    std::thread reader_;
};

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
    std::string escaped;
    for (int i = 0; i < 4999; ++i) { // the last one ends the line
        escaped += "\\n";
    }
    EXPECT_EQ(lines.all, (std::vector<std::string>{
                             "ctx:text", "ctx:!text", "ctx:!create thing",
                             "ctx:!allocate array of 3 elements of -4 bytes", "no context",
                             "ctx:(null)", "100%d:%s %n", "ctx:" + longText, "free 5",
                             "a\\nb\\tc\\r\\x1b[0m\\x7f \xc3\xa4 ", escaped}));
}

TEST(Log, KeepsLinesOfThreadsApart)
{
    constexpr int threadCount = 4;
    constexpr int lineCount = 500;
    StandardError captured;
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([t] {
            const std::string body(static_cast<size_t>(2000 * (t + 1)), static_cast<char>('a' + t));
            for (int i = 0; i < lineCount; ++i) {
                QELLog_printContextAndMsg("t", &QEL_LOG_ANY_s, body.c_str());
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    std::map<std::string, int> counts;
    const std::string text = captured.text();
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        ++counts[text.substr(start, end - start)];
        start = end + 1;
    }
    EXPECT_EQ(counts.size(), size_t{threadCount});
    for (int t = 0; t < threadCount; ++t) {
        const std::string body(static_cast<size_t>(2000 * (t + 1)), static_cast<char>('a' + t));
        EXPECT_EQ(counts["t:" + body], lineCount);
    }
}

// After setSink returned nobody is inside the earlier sink, so its data may go.
TEST(Log, LeavesASinkBeforeItIsReplaced)
{
    struct Sink {
        std::atomic<bool> alive{true};
        std::atomic<int> lines{0};
    };
    std::atomic<bool> stop{false};
    std::atomic<int> late{0};
    static std::atomic<int> *lateLines;
    lateLines = &late;
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&stop] {
            while (!stop) {
                QELLog_debug("x");
                std::this_thread::yield();
            }
        });
    }
    const QELLogSink sink = [](void *data, const char *, size_t) {
        auto *self = static_cast<Sink *>(data);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        *lateLines += self->alive ? 0 : 1;
        ++self->lines;
    };
    std::vector<std::unique_ptr<Sink>> sinks;
    for (int i = 0; i < 200; ++i) {
        sinks.push_back(std::make_unique<Sink>());
        QELLog_setSink(sink, sinks.back().get());
        if (i > 0) {
            sinks[static_cast<size_t>(i) - 1]->alive = false;
        }
        while (sinks.back()->lines == 0) {
            std::this_thread::yield();
        }
    }
    stop = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    QELLog_setSink(nullptr, nullptr);
    EXPECT_EQ(late, 0);
}

TEST(Log, PrintsWhatASinkLogsItself)
{
    StandardError captured;
    QELLog_setSink([](void *, const char *line, size_t) { QELLog_debug("again %s", line); },
                   nullptr);
    QELLog_debug("one");
    QELLog_setSink(nullptr, nullptr);
    EXPECT_EQ(captured.text(), "again one\n");
}

} // namespace
