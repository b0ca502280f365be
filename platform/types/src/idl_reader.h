// Turns IDL text into type codes. May throw std::bad_alloc.
#ifndef QDDSC_SRC_IDL_READER_H
#define QDDSC_SRC_IDL_READER_H

#include <string>
#include <vector>

#include "idl_left_out.h"
#include "idl_text.h"
#include "qddsc/type_code.h"

namespace qddsc {

struct NamedType {
    const DDS_TypeCode *type;
    /// Where it is declared: "weather.idl:3".
    std::string place;
    /// Line and column of the joined text: the order of declaration.
    uint64_t order;
};

/// What a text defines.
struct IdlContent {
    /// In the order of their declaration, but for a struct that is used by a forward declaration.
    std::vector<NamedType> types;
    /// What the types do not carry, and what uses that.
    std::vector<IdlLeftOut> leftOuts;
    /// Which annotations have no effect, a line each.
    std::vector<std::string> notes;
};

/// False, with `error` filled, for a text with a mistake in it.
bool readIdl(const IdlText &text, IdlContent &content, DDS_ErrorText *error);

} // namespace qddsc

#endif
