// An IDL text on its way to the parser: which definitions the parser sees, and what is said about
// places in the text.
#ifndef QDDSC_SRC_IDL_SOURCE_H
#define QDDSC_SRC_IDL_SOURCE_H

#include <string>
#include <vector>

#include "idl_copier.h"
#include "idl_left_out.h"
#include "idl_text.h"
#include "idl_tree.h"
#include "qddsc/common.h"

namespace qddsc {

class IdlSource {
public:
    /// The text outlives the object.
    explicit IdlSource(const IdlText &text) : text_(text), textLeftOuts_(copy_.text, outline_) {}

    /// Makes the parser's text; false for one that is nested too deep, has a misspelt annotation,
    /// defines a name in two ways, or has no end.
    bool prepare(DDS_ErrorText *error);

    /// The text as the parser takes it: a copy without what comes again and what is left out.
    const std::string &prepared() const
    {
        return copy_.text;
    }

    /// Leaves the definition out that the parser complains about, if it is one that IDL allows or
    /// whose fault is its own. False if the complaint is about the text.
    bool leaveOut(const QIdlProblem &problem);

    /// What was left out, in the order of declaration.
    std::vector<IdlLeftOut> leftOuts() const;

    /// "weather.idl:3" for a line of the prepared text.
    std::string place(uint32_t line) const
    {
        return text_.place(line);
    }
    /// "weather.idl:3:14".
    std::string place(uint32_t line, uint32_t column) const;

    /// Line and column of the prepared text, counted from 1.
    std::pair<uint32_t, uint32_t> spotOf(size_t offset) const;

    /// Fills the error with what is wrong at a place of the prepared text.
    void explain(DDS_ErrorText *error, uint32_t line, uint32_t column, const char *what) const;

    /// Words a parser's complaint for people: the offending word is looked up in the text.
    void explain(DDS_ErrorText *error, const QIdlProblem &problem) const;

    /// The @default of the declaration around a place, or null.
    const IdlCopy::Default *defaultAround(uint32_t line, uint32_t column) const;

    /// Remembers an annotation that has no effect where it stands.
    void note(const std::string &name, uint32_t line)
    {
        copy_.note(name, line);
    }

    /// Says of each annotation that was dropped where it stands first.
    std::vector<std::string> notes() const;

private:
    /// Of a text with more complaints than this the rest is not worth the time.
    static constexpr size_t mostComplaints = 100;
    /// What names with modules may add to the text.
    static constexpr size_t mostCompletion = 64U << 20;

    void findLines();
    void completeNames();
    bool dropRepeated(DDS_ErrorText *error);
    bool checkEnds(DDS_ErrorText *error) const;
    void explainAt(DDS_ErrorText *error, size_t offset, const std::string &what) const;
    size_t offsetOf(uint32_t line, uint32_t column) const;
    std::string wordAt(uint32_t line, uint32_t column) const;

    const IdlText &text_;
    IdlCopy copy_;
    IdlOutline outline_;
    IdlTextLeftOuts textLeftOuts_;
    /// Where each line of the copy begins.
    std::vector<size_t> lines_;
    size_t complaints_ = 0;
};

} // namespace qddsc

#endif
