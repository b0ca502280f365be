// Which type a place of the parser's tree stands for.
#ifndef QDDSC_SRC_IDL_TYPES_H
#define QDDSC_SRC_IDL_TYPES_H

#include <string>
#include <unordered_map>

#include "idl_tree.h"
#include "qddsc/type_code.h"

namespace qddsc {

/// Why a definition is left out.
struct IdlReason {
    QIdlNode node = nullptr;
    std::string why;
    /// What it uses that is left out itself; "" if the reason is its own.
    std::string cause;
};

class IdlTypes {
public:
    virtual ~IdlTypes() = default;

    /// Type of one declarator of a member or typedef: that of the whole, or an array of it. Null
    /// with the reason remembered.
    const DDS_TypeCode *declaredType(QIdlNode node, QIdlNode declarator);

    /// Type that `spec` stands for; reasons are placed at `user`, which uses it.
    const DDS_TypeCode *typeOf(QIdlNode user, QIdlNode spec);

protected:
    /// Reads the struct behind a forward declaration that is used before it. What went wrong is in
    /// leftOut_ then, if anything.
    virtual void readAhead(QIdlNode structure) = 0;

    /// Says why the definition under way is left out. Returns false.
    bool leave(QIdlNode node, const std::string &why, const std::string &cause = "");

    IdlReason reason_;
    std::unordered_map<QIdlNode, const DDS_TypeCode *> byNode_;
    /// Names of definitions that are left out.
    std::unordered_map<QIdlNode, std::string> leftOut_;

private:
    const DDS_TypeCode *namedType(QIdlNode user, QIdlNode spec, QIdlKind kind);
};

} // namespace qddsc

#endif
