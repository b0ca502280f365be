// See idl_key_lists.h.
#include "idl_key_lists.h"

#include <algorithm>

#include <fmt/format.h>

#include "idl_key_parts.h"
#include "qddscdr/error_text.h"

namespace qddsc {

namespace {

using Structs = std::vector<std::pair<uint32_t, std::string>>;

bool fail(const IdlKeyList &list, const std::string &what, DDS_ErrorText *error)
{
    qddscdr::setError(error, "%s:1: the keys of a pragma: %s", list.place.c_str(), what.c_str());
    return false;
}

/// Whether a struct is meant, with or without its modules.
bool isNamed(const std::string &name, const std::string &meant)
{
    const std::string whole = "::" + name;
    const std::string tail = meant.rfind("::", 0) == 0 ? meant : "::" + meant;
    return whole.size() >= tail.size() &&
           whole.compare(whole.size() - tail.size(), tail.size(), tail) == 0;
}

/// Of the definitions of a kind the line and the name.
void list(QIdlNode node, const std::string &scope, QIdlKind kind, Structs &structs)
{
    for (; node != nullptr; node = qidl_next(node)) {
        if (qidl_kind(node) == QIDL_MODULE) {
            list(qidl_first(node), scope + qidl_name(node) + "::", kind, structs);
        } else if (qidl_kind(node) == kind && qidl_name(node) != nullptr) {
            uint32_t line = 0;
            uint32_t column = 0;
            qidl_location(node, &line, &column);
            structs.emplace_back(line, scope + qidl_name(node));
        }
    }
}

} // namespace

bool IdlKeyLists::assign(QIdlNode root, const std::vector<IdlLeftOut> &leftOuts,
                         DDS_ErrorText *error)
{
    Structs structs;
    Structs unions;
    if (!lists_.empty()) {
        list(root, "", QIDL_STRUCT, structs);
        list(root, "", QIDL_UNSUPPORTED, unions);
    }
    for (const IdlKeyList &keys : lists_) {
        const std::string *found = nullptr;
        for (const auto &[line, name] : structs) {
            if (isNamed(name, keys.type) && (found == nullptr || line <= keys.line)) {
                found = &name;
            }
        }
        if (found != nullptr) {
            listsOf_[*found].push_back(&keys);
        } else if (std::none_of(
                       unions.begin(), unions.end(),
                       [&](const auto &each) { return isNamed(each.second, keys.type); }) &&
                   std::none_of(leftOuts.begin(), leftOuts.end(), [&](const IdlLeftOut &each) {
                       return isNamed(each.name, keys.type);
                   })) {
            return fail(keys, fmt::format("there is no struct \"{}\"", keys.type), error);
        }
    }
    return true;
}

bool IdlKeyLists::apply(const std::string &name, std::vector<DDS_StructMember> &members,
                        const DDS_TypeCode *&base, DDS_ErrorText *error) const
{
    const auto lists = listsOf_.find(name);
    if (lists == listsOf_.end()) {
        return true;
    }
    IdlKeyParts parts;
    std::string problem;
    for (const IdlKeyList *list : lists->second) {
        for (const std::string &key : list->members) {
            if (!parts.add(key, name, base, members, problem)) {
                return fail(*list, problem, error);
            }
        }
    }
    return parts.apply(members, base, problem) || fail(*lists->second.front(), problem, error);
}

} // namespace qddsc
