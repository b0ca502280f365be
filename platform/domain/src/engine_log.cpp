// The engine's warnings and errors on their way into this platform's log. Runs on any thread of the
// engine; takes a lock of its own for a few instructions.
#include "domain.h"

#include <array>
#include <chrono>
#include <mutex>

#include <fmt/format.h>

#include "engine_log.h"
#include "qddscore/log.h"

namespace qddsdomain {

namespace {

constexpr uint32_t levelError = 0x1;
constexpr uint32_t levelWarning = 0x2;
constexpr std::chrono::seconds quietTime{10};

thread_local EngineComplaints *innermost = nullptr;
thread_local bool dropNext = false;

/// The engine repeats some lines with every message that it cannot use. A call site of it speaks
/// once in ten seconds.
class Repetitions {
public:
    /// How many lines of that site were held back since it last spoke; negative: hold this back.
    int64_t pass(const char *file, uint32_t line)
    {
        const auto now = std::chrono::steady_clock::now();
        const std::lock_guard<std::mutex> guard(mutex);
        CallSite &site = sites[(reinterpret_cast<uintptr_t>(file) / 8 + line) % sites.size()];
        if (site.file != file || site.line != line) {
            site = {file, line, now, 0};
            return 0;
        }
        if (now - site.spoke < quietTime) {
            ++site.held;
            return -1;
        }
        const int64_t held = site.held;
        site = {file, line, now, 0};
        return held;
    }

private:
    struct CallSite {
        const char *file;
        uint32_t line;
        std::chrono::steady_clock::time_point spoke;
        int64_t held;
    };
    std::mutex mutex;
    std::array<CallSite, 64> sites{};
};

void receive(void *, const dds_log_data_t *data)
try {
    if ((data->priority & (DDS_LC_FATAL | DDS_LC_ERROR | DDS_LC_WARNING)) == 0) {
        return;
    }
    if (dropNext) {
        dropNext = false;
        return;
    }
    std::string line(data->message, data->size);
    line.erase(line.find_last_not_of('\n') + 1);
    if (innermost != nullptr) {
        collect(line);
        return;
    }
    static auto *repetitions = new Repetitions; // the engine may still log while statics go
    const int64_t held = repetitions->pass(data->file, data->line);
    if (held < 0) {
        return;
    }
    if (held > 0) {
        line += fmt::format(" ({} more like this)", held);
    }
    if (QELLog_setLogLevel != nullptr) {
        QELLog_setLogLevel((data->priority & DDS_LC_WARNING) != 0 ? levelWarning : levelError);
    }
    QELLog_printContextAndMsg("dds", &QEL_LOG_ANY_s, line.c_str());
} catch (...) {
    return; // no memory for a log line
}

} // namespace

void collect(const std::string &line)
{
    std::string &lines = innermost->lines;
    lines += lines.empty() ? line : "; " + line;
}

EngineComplaints::EngineComplaints() : outer(innermost)
{
    innermost = this;
}

EngineComplaints::~EngineComplaints()
{
    innermost = outer;
}

std::string EngineComplaints::text(dds_return_t code) const
{
    std::string text = dds_strretcode(code);
    return lines.empty() ? text : fmt::format("{}: {}", text, lines);
}

void dropNextEngineLine()
{
    dropNext = true;
}

void adoptEngineLog()
{
    static std::once_flag once;
    std::call_once(once, [] { dds_set_log_sink(receive, nullptr); });
}

} // namespace qddsdomain
