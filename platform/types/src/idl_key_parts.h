// Keys that are parts of members: "#pragma keylist Track header.id".
//
// The struct inside gets these keys for its owner alone, so the owner's member has a type of its
// own: a struct of the same name in which the parts are keys.
#ifndef QDDSC_SRC_IDL_KEY_PARTS_H
#define QDDSC_SRC_IDL_KEY_PARTS_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "qddsc/type_code.h"

namespace qddsc {

class IdlKeyParts {
public:
    /// Makes a key of the member that a path leads to: of `members`, which are those of the struct
    /// `name`, or of its base, which may be null. False with `problem` filled.
    bool add(const std::string &path, const std::string &name, const DDS_TypeCode *base,
             std::vector<DDS_StructMember> &members, std::string &problem);

    /// Gives the base and the members that have such parts inside their types; after all paths were
    /// added.
    bool apply(std::vector<DDS_StructMember> &members, const DDS_TypeCode *&base,
               std::string &problem);

private:
    using Keys = std::set<std::string>;

    const DDS_TypeCode *addInherited(const std::string &name, const DDS_TypeCode *base);
    const DDS_TypeCode *rebuilt(const DDS_TypeCode *type);
    const DDS_TypeCode *rebuiltPart(const DDS_TypeCode *type);
    const DDS_TypeCode *rebuiltStruct(const DDS_TypeCode *type);

    /// Keys of the struct that a path leads to; none where the whole of it is the key.
    std::map<std::string, std::pair<const DDS_TypeCode *, Keys>> byPath_;
    std::map<const DDS_TypeCode *, Keys> byType_;
    std::map<const DDS_TypeCode *, const DDS_TypeCode *> rebuilt_;
    DDS_ErrorText why_{};
};

} // namespace qddsc

#endif
