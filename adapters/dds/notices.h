// What the engine has to say of a reader or writer beside the samples, on its way to the host.
#ifndef FERRYADAPTER_DDS_NOTICES_H
#define FERRYADAPTER_DDS_NOTICES_H

#include <chrono>
#include <string>

#include <fmt/format.h>

#include "error.h"
#include "qddsc/common.h"

namespace ferrydds {

/// Makes notices the error of a call, at most once in ten seconds. In between they stay with the
/// engine, which counts on. Used by one thread at a time.
class Notices {
public:
    /// `take` is the engine's take_notice of `entity`.
    template<class Entity>
    void report(const std::string &owner, Entity *entity,
                std::int32_t (*take)(Entity *, DDS_ErrorText *),
                QEL_FerrionEnvironment *environment)
    {
        const auto now = std::chrono::steady_clock::now();
        // Held errors come first, and a notice that found no room would be lost.
        if (now < next_ || environment->errorFlag != 0) {
            return;
        }
        DDS_ErrorText text{};
        std::string all;
        while (all.size() < sizeof text.text && take(entity, &text) != 0) {
            all += fmt::format("{}{}", all.empty() ? "" : "; ", text.text);
        }
        if (!all.empty()) {
            ferrydds::report(environment, fmt::format("{}: {}", owner, all));
            next_ = now + std::chrono::seconds(10);
        }
    }

    /// Lets the next report through at once: for the last one of an object.
    void hurry()
    {
        next_ = {};
    }

private:
    std::chrono::steady_clock::time_point next_{};
};

/// Says in the log why an endpoint without partners has none, although the domain has some of its
/// topic: no call fails for that, and nothing else reports it. Used by one thread at a time.
class Solitude {
public:
    /// `matched` is how many partners there are, `describe` the engine's get_mismatches of
    /// `entity`, which looks through the whole domain.
    template<class Entity>
    void look(const std::string &owner, Entity *entity, std::uint32_t matched,
              std::int32_t (*describe)(Entity *, DDS_ErrorText *))
    {
        if (matched > 0) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now < next_) {
            return;
        }
        next_ = now + pause;
        DDS_ErrorText text{};
        if (describe(entity, &text) == 0 || (text.text == reported_ && now < again_)) {
            return;
        }
        reported_ = text.text;
        again_ = now + reminder;
        warn("FerryAdapter_dds", fmt::format("{}: {}", owner, reported_));
    }

private:
    /// Time for those that are there to be found.
    static constexpr std::chrono::milliseconds patience{500};
    static constexpr std::chrono::seconds pause{10};
    static constexpr std::chrono::minutes reminder{10};

    std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + patience;
    std::chrono::steady_clock::time_point again_{};
    std::string reported_;
};

} // namespace ferrydds

#endif
