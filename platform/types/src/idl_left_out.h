// Definitions that the types do not carry. They are left out, and with them what uses them: one
// union in a file does not take the structs beside it along.
//
// Some are found in the text, because the parser does not take them (interfaces, wide strings);
// others in the parser's tree.
#ifndef QDDSC_SRC_IDL_LEFT_OUT_H
#define QDDSC_SRC_IDL_LEFT_OUT_H

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "idl_names.h"

namespace qddsc {

struct IdlLeftOut {
    /// "weather::Either".
    std::string name;
    /// Where the reason is: "weather.idl:3:14".
    std::string place;
    /// "union Either is not supported".
    std::string why;
    /// What it uses that is left out itself; "" if the reason is its own.
    std::string cause;
    bool isStruct;
    /// Line and column of the joined text: the order of declaration.
    uint64_t order;
};

/// Those of a text, before the parser sees it.
class IdlTextLeftOuts {
public:
    /// Both outlive the object. Lengths of the text and its lines do not change meanwhile.
    IdlTextLeftOuts(const std::string &text, IdlOutline &outline) : text_(text), outline_(outline)
    {
    }

    struct LeftOut {
        std::size_t definition;
        std::size_t at;
        std::string why;
        std::string cause;
    };

    /// Drops what the parser does not take, and what uses that.
    void find();

    /// The definition around a place that is not dropped, or null.
    const IdlDefinition *around(std::size_t at) const;

    /// Drops that definition, and what uses it.
    void dropAround(std::size_t at, const std::string &why);

    const std::vector<LeftOut> &all() const
    {
        return leftOuts_;
    }

private:
    struct User {
        std::size_t definition;
        std::size_t at;
    };

    void drop(std::size_t definition, std::size_t at, const std::string &why);
    void findUses();
    bool findReason(const IdlDefinition &definition, std::size_t &at, std::string &why) const;

    const std::string &text_;
    IdlOutline &outline_;
    std::vector<LeftOut> leftOuts_;
    std::optional<IdlNames> names_;
    std::unordered_map<std::string, std::vector<std::size_t>> forwards_;
    /// Who uses a definition; made when the first is dropped.
    std::vector<std::vector<User>> users_;
};

} // namespace qddsc

#endif
