// The preprocessor of IDL: #include, conditions, macros, and the pragmas that say what a key is.
//
// Files are looked for beside the file that includes them, and then in the folders that were given.
// Nothing is read that lies in none of these folders: an IDL file from elsewhere does not get at
// what its reader may read. Each file comes once. There is a library for this in Debian, which
// opens whatever it is told to and keeps its state in globals; it has had no release since 2008.
#ifndef QDDSC_SRC_IDL_PREPROCESSOR_H
#define QDDSC_SRC_IDL_PREPROCESSOR_H

#include <filesystem>
#include <set>

#include "idl_macros.h"
#include "idl_text.h"
#include "qddsc/common.h"

namespace qddsc {

class IdlPreprocessor {
public:
    explicit IdlPreprocessor(const std::vector<std::filesystem::path> &folders);

    /// Joins a text, named `name` in complaints, with what it includes. `file` is where it stands;
    /// empty if it is in no file. False with `error` filled.
    bool join(const std::string &text, const std::string &name, const std::filesystem::path &file,
              IdlText &joined, DDS_ErrorText *error);

private:
    /// A text under way.
    struct Source {
        uint32_t number;
        /// Empty for a text that is in no file.
        std::filesystem::path file;
        const Source *includedBy;
        uint32_t line = 0;
        std::size_t depth = 0;
        /// Conditions that were open before it.
        std::size_t outerBranches = 0;
    };
    /// A condition under way.
    struct Branch {
        /// Whether its lines count now.
        bool active;
        /// Whether those of some branch of it did, or none can.
        bool taken;
        bool sawElse;
        uint32_t line;
    };
    /// Where a complaint is.
    struct Place {
        uint32_t source;
        uint32_t line;
    };

    void add(const std::string &text, Source &source);
    void addCode(const std::string &line, bool &inComment);
    bool isActive() const;
    void obey(const std::string &line, Source &source);
    bool obeyCondition(const std::string &word, const std::string &rest);
    bool isTrue(const std::string &word, const std::string &rest) const;
    void include(const std::string &rest, Source &source);
    std::filesystem::path find(const std::string &name, const Source &source) const;
    bool isAllowed(const std::filesystem::path &file) const;
    static void checkCycle(const std::string &name, const std::filesystem::path &file,
                           const Source &source);
    void obeyPragma(const std::string &rest);
    void count(std::size_t bytes);

    std::vector<std::filesystem::path> folders_;
    /// Those, and that of the first file: what may be read.
    std::vector<std::filesystem::path> allowed_;
    IdlText *joined_ = nullptr;
    /// The innermost.
    const Source *source_ = nullptr;
    Place place_{};
    IdlMacros macros_;
    std::vector<Branch> branches_;
    std::set<std::filesystem::path> files_;
    std::size_t bytes_ = 0;
};

/// The content of a file, which has to be text. Throws IdlFault.
std::string readIdlFile(const std::filesystem::path &file);

} // namespace qddsc

#endif
