// An IDL text on its way to the parser, and what can be said about it by looking at the text alone.
#ifndef QDDSC_SRC_IDL_SOURCE_H
#define QDDSC_SRC_IDL_SOURCE_H

#include <string>
#include <vector>

#include "idl_tree.h"
#include "qddsc/common.h"

namespace qddsc {

class IdlSource {
public:
    /// The name outlives the object.
    IdlSource(const char *text, const char *name);

    /// Makes the parser's text; false when there are preprocessor lines, which nobody would act on.
    bool prepare(DDS_ErrorText *error);

    /// The text with a blank in every ">>" that ends two templates: the parser takes it for a
    /// shift.
    const std::string &prepared() const
    {
        return prepared_;
    }

    /// Fills the error with what is wrong at a place of the prepared text.
    void explain(DDS_ErrorText *error, uint32_t line, uint32_t column, const char *what) const;

    /// Words a parser's complaint for people: the offending word is looked up in the text.
    void explain(DDS_ErrorText *error, const QIdlProblem &problem) const;

private:
    static constexpr uint32_t maxNesting = 64;

    struct Blank {
        uint32_t line;
        uint32_t column; // in the prepared text
    };

    const char *copyQuoted(const char *at);
    void copy(char character);
    bool checkNesting(char character, DDS_ErrorText *error);
    bool copyCode(const char *&at, DDS_ErrorText *error);
    std::string wordAt(uint32_t line, uint32_t column) const;

    std::string text_;
    const char *name_;
    std::string prepared_;
    std::vector<Blank> blanks_;
    /// Where copying is in the prepared text.
    uint32_t line_ = 1;
    uint32_t column_ = 1;
    bool lineIsBlank_ = true;
    uint32_t openTemplates_ = 0;
    uint32_t openBraces_ = 0;
};

} // namespace qddsc

#endif
