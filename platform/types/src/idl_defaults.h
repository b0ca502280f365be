// What @default gives to the members of a text's structs.
#ifndef QDDSC_SRC_IDL_DEFAULTS_H
#define QDDSC_SRC_IDL_DEFAULTS_H

#include <unordered_map>

#include "idl_source.h"
#include "idl_tree.h"
#include "idl_value.h"
#include "qddsc/type_code.h"

namespace qddsc {

class IdlDefaults {
public:
    /// The source outlives the object.
    explicit IdlDefaults(IdlSource &source) : source_(source) {}

    /// Constants are declared before they are used. `scope` is "a::b::".
    void addConstant(QIdlNode constant, const std::string &scope);

    /// Value for a member of `type`, whose struct is declared in `scope`; nothing if it has none,
    /// or one that has no effect, which is noted. False with `error` filled.
    bool find(QIdlNode member, const DDS_TypeCode *type, const std::string &scope,
              std::optional<std::string> &value, DDS_ErrorText *error);

private:
    std::optional<IdlValue> valueOf(const std::string &arguments, DDS_TCKind kind,
                                    const std::string &scope) const;
    const IdlValue *findConstant(const std::string &name, std::string scope) const;

    IdlSource &source_;
    std::unordered_map<std::string, IdlValue> constants_;
};

} // namespace qddsc

#endif
