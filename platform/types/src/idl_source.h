// An IDL text on its way to the parser, and what can be said about it by looking at the text alone.
#ifndef QDDSC_SRC_IDL_SOURCE_H
#define QDDSC_SRC_IDL_SOURCE_H

#include <string>
#include <vector>

#include "idl_text.h"
#include "idl_tree.h"
#include "qddsc/common.h"

namespace qddsc {

class IdlSource {
public:
    /// The text outlives the object.
    explicit IdlSource(const IdlText &text) : text_(text) {}

    /// Makes the parser's text; false for one that is nested too deep, has a misspelt annotation,
    /// or defines a name in two ways.
    bool prepare(DDS_ErrorText *error);

    /// The text as the parser takes it. A blank stands in every ">>" that ends two templates, which
    /// it takes for a shift. Words that were no keywords once are marked as names. Annotations that
    /// do not change samples are blanks.
    const std::string &prepared() const
    {
        return prepared_;
    }

    /// "weather.idl:3" for a line of the prepared text.
    std::string place(uint32_t line) const
    {
        return text_.place(line);
    }

    /// Fills the error with what is wrong at a place of the prepared text.
    void explain(DDS_ErrorText *error, uint32_t line, uint32_t column, const char *what) const;

    /// Words a parser's complaint for people: the offending word is looked up in the text.
    void explain(DDS_ErrorText *error, const QIdlProblem &problem) const;

    /// A @default, which is not for the parser. Line and column are those of the prepared text.
    struct Default {
        uint32_t line;
        uint32_t column;
        std::size_t offset;
        /// Of the end of the declaration it is about.
        uint32_t endLine;
        uint32_t endColumn;
        std::string arguments;
    };

    /// That of the declaration around a place, or null.
    const Default *defaultAround(uint32_t line, uint32_t column) const;

    /// Remembers an annotation that has no effect where it stands.
    void note(const std::string &name, uint32_t line);

    /// Says of each annotation that was dropped where it stands first.
    std::vector<std::string> notes() const;

private:
    static constexpr uint32_t maxNesting = 64;

    /// A sign that only the prepared text has.
    struct Inserted {
        uint32_t line;
        uint32_t column; // in the prepared text
    };
    struct Passed {
        std::string name;
        std::string place;
        uint32_t count;
    };

    void copy(char character);
    void insert(char character);
    void blank(const char *from, const char *to);
    bool checkNesting(char character, DDS_ErrorText *error);
    bool copyCode(const char *&at, DDS_ErrorText *error);
    void copyWord(const char *&at);
    bool copyAnnotation(const char *&at, DDS_ErrorText *error);
    void dropAnnotation(const char *name, const char *end);
    void endDeclaration();
    bool dropRepeated(DDS_ErrorText *error);
    std::string wordAt(uint32_t line, uint32_t column) const;

    const IdlText &text_;
    std::string prepared_;
    std::vector<Inserted> inserted_;
    std::vector<Passed> passed_;
    std::vector<Default> defaults_;
    /// Where copying is in the prepared text.
    uint32_t line_ = 1;
    uint32_t column_ = 1;
    uint32_t openTemplates_ = 0;
    uint32_t openBraces_ = 0;
};

} // namespace qddsc

#endif
