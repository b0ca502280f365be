// The pragmas of a text that say what the key of a struct is.
#ifndef QDDSC_SRC_IDL_KEY_LISTS_H
#define QDDSC_SRC_IDL_KEY_LISTS_H

#include <string>
#include <unordered_map>
#include <vector>

#include "idl_left_out.h"
#include "idl_text.h"
#include "idl_tree.h"
#include "qddsc/type_code.h"

namespace qddsc {

class IdlKeyLists {
public:
    /// The lists outlive the object.
    explicit IdlKeyLists(const std::vector<IdlKeyList> &lists) : lists_(lists) {}

    /// Finds out which struct each list is about: of those with the name the one in front of the
    /// pragma, or else the first. Those about what is left out, or about a union, count for
    /// nothing. False, with `error` filled, for a list about no struct of the text.
    bool assign(QIdlNode root, const std::vector<IdlLeftOut> &leftOuts, DDS_ErrorText *error);

    /// Makes keys of members of a struct; `base` becomes another type if they are inherited. False,
    /// with `error` filled, if the struct has none of the name.
    bool apply(const std::string &name, std::vector<DDS_StructMember> &members,
               const DDS_TypeCode *&base, DDS_ErrorText *error) const;

private:
    const std::vector<IdlKeyList> &lists_;
    /// By the struct's name.
    std::unordered_map<std::string, std::vector<const IdlKeyList *>> listsOf_;
};

} // namespace qddsc

#endif
