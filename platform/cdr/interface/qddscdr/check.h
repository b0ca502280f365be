// Checking the bytes of a sample that came from outside, before anything trusts them.
#ifndef QDDSCDR_CHECK_H
#define QDDSCDR_CHECK_H

#include <array>
#include <cstdio>

#include "qddsc/error_text.h"
#include "qddscdr/walk.h"

namespace qddscdr {

/// The way from a sample's root to the value that a walk failed at, put together while it unwinds.
class FailurePath {
public:
    /// The text is not cleared: that would cost as much as checking a small sample.
    FailurePath()
    {
        text_[start_] = '\0';
    }

    /// Steps are put in front; those that do not fit are left out.
    void prependMember(std::string_view name)
    {
        prepend(name);
        prepend(".");
    }
    void prependIndex(uint64_t index)
    {
        std::array<char, 24> step{};
        std::snprintf(step.data(), step.size(), "[%llu]", static_cast<unsigned long long>(index));
        prepend(step.data());
    }

    const char *text() const
    {
        const char *start = text_ + start_;
        return start[0] == '.' ? start + 1 : start;
    }

private:
    void prepend(std::string_view step)
    {
        if (step.size() <= start_) {
            start_ -= step.size();
            std::memcpy(text_ + start_, step.data(), step.size());
        }
    }

    char text_[256];
    size_t start_ = sizeof text_ - 1;
};

/// A payload is padded to a multiple of 4 on its way.
constexpr uint64_t maxTrailer = 3;

/// Walks a whole sample and finds everything that set_cdr rejects. `padded` tells whether any
/// padding was not zero; `size` is that of the sample without bytes behind it.
bool checkCdr(const Type &root, const CdrView &view, uint64_t &size, bool &padded,
              DDS_ErrorText *error);

/// Clears the padding of a sample that checkCdr accepted.
void clearPadding(const Type &root, uint8_t *bytes, uint64_t size);

} // namespace qddscdr

#endif
