// The rules a type must keep before it is interned. Each check fills the error and returns false.
#ifndef QDDSC_SRC_TYPE_RULES_H
#define QDDSC_SRC_TYPE_RULES_H

#include "type_code.h"

namespace qddsc {

/// A scoped name: identifiers joined by "::".
bool checkTypeName(const char *name, DDS_ErrorText *error);

/// A plain identifier, within the type `owner`.
bool checkMemberName(const char *owner, const char *name, DDS_ErrorText *error);

/// The base, if any, is a struct of the same extensibility.
bool checkBase(const DDS_TypeCode &structure, DDS_ErrorText *error);

/// A member to be added: its type, and that it may be a key if it is said to be one.
bool checkMember(const DDS_TypeCode &structure, const DDS_StructMember &member,
                 DDS_ErrorText *error);

/// All members together: at least one, names distinct.
bool checkStruct(const DDS_TypeCode &structure, DDS_ErrorText *error);
bool checkEnum(const DDS_TypeCode &enumeration, DDS_ErrorText *error);

} // namespace qddsc

#endif
