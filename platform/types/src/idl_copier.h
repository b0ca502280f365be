// Writes an IDL text anew, as the parser takes it.
#ifndef QDDSC_SRC_IDL_COPIER_H
#define QDDSC_SRC_IDL_COPIER_H

#include <cstdint>
#include <string>
#include <vector>

namespace qddsc {

/// A text as the parser takes it. A blank stands in every ">>" that ends two templates, which it
/// takes for a shift. Words that were no keywords once are marked as names. Annotations that do not
/// change samples are blanks. Lines stay where they are, and columns but for inserted signs.
struct IdlCopy {
    /// A @default, which is not for the parser.
    struct Default {
        std::size_t offset;
        /// Of the end of the declaration it is about; 0 if it has none.
        std::size_t end;
        std::string arguments;
    };
    /// An annotation that has no effect where it stands.
    struct Passed {
        std::string name;
        uint32_t line;
        uint32_t count;
    };

    std::string text;
    /// Where signs stand that only the copy has.
    std::vector<std::size_t> inserted;
    std::vector<Default> defaults;
    std::vector<Passed> passed;

    void note(const std::string &name, uint32_t noteLine);

    /// Puts words into the text, in the order of their places. Lines stay.
    struct Insertion {
        std::size_t at;
        std::string words;
    };
    void insert(const std::vector<Insertion> &insertions);
};

/// What is wrong at a place of the copy.
struct IdlComplaint {
    uint32_t line;
    uint32_t column;
    std::string what;
};

class IdlCopier {
public:
    explicit IdlCopier(IdlCopy &copy) : copy_(copy) {}

    /// False, with `complaint` filled, for a text that is nested too deep or has a misspelt
    /// annotation. May throw std::bad_alloc.
    bool copyAll(const char *text, IdlComplaint &complaint);

private:
    static constexpr uint32_t maxNesting = 64;

    bool fail(const std::string &what);
    void copy(char character);
    void insert(char character);
    void blank(const char *from, const char *to);
    bool checkNesting(char character);
    bool copyCode(const char *&at);
    void copyWord(const char *&at);
    bool copyAnnotation(const char *&at);
    void dropAnnotation(const char *name, const char *end);
    void endDeclaration();

    IdlCopy &copy_;
    IdlComplaint *complaint_ = nullptr;
    /// Where copying is in the copy.
    uint32_t line_ = 1;
    uint32_t column_ = 1;
    uint32_t openTemplates_ = 0;
    uint32_t openBraces_ = 0;
};

} // namespace qddsc

#endif
