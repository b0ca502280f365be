// IDL texts joined to one for the parser, with the way back: where each line of it comes from.
#ifndef QDDSC_SRC_IDL_TEXT_H
#define QDDSC_SRC_IDL_TEXT_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace qddsc {

/// Members that "#pragma keylist" or "#pragma DCPS_DATA_KEY" makes the key of a struct.
struct IdlKeyList {
    /// As it was written: "Observation" or "weather::Observation".
    std::string type;
    std::vector<std::string> members;
    /// Where the pragma is: "weather.idl:7".
    std::string place;
    /// The last line of the joined text in front of it.
    uint32_t line = 0;
};

class IdlText {
public:
    /// Begins with the lines of another source. Returns its number.
    uint32_t addSource(const std::string &name)
    {
        sources_.push_back(name);
        return static_cast<uint32_t>(sources_.size() - 1);
    }
    /// Appends a line, which needs no line break.
    void addLine(const std::string &line, uint32_t source, uint32_t number)
    {
        text_ += line;
        text_ += '\n';
        origins_.push_back({source, number});
    }
    const std::string &text() const
    {
        return text_;
    }
    /// "weather.idl:3" for a line of the text, counted from 1; also for those behind the end.
    std::string place(uint32_t line) const
    {
        if (origins_.empty()) {
            return (sources_.empty() ? "" : sources_.front()) + ":1";
        }
        const size_t known = std::min<size_t>(line, origins_.size());
        const Origin &origin = origins_[known == 0 ? 0 : known - 1];
        return sources_[origin.source] + ":" + std::to_string(origin.line + line - known);
    }
    uint32_t lines() const
    {
        return static_cast<uint32_t>(origins_.size());
    }
    const std::string &sourceName(uint32_t source) const
    {
        return sources_[source];
    }

    std::vector<IdlKeyList> keyLists;

private:
    struct Origin {
        uint32_t source;
        uint32_t line;
    };

    std::string text_;
    std::vector<std::string> sources_;
    std::vector<Origin> origins_;
};

} // namespace qddsc

#endif
