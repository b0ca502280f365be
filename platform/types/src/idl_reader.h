// Turns IDL text into type codes. May throw std::bad_alloc.
#ifndef QDDSC_SRC_IDL_READER_H
#define QDDSC_SRC_IDL_READER_H

#include <string>
#include <vector>

#include "idl_text.h"
#include "qddsc/type_code.h"

namespace qddsc {

struct NamedType {
    const DDS_TypeCode *type;
    /// Where it is declared: "weather.idl:3".
    std::string place;
};

/// Appends the named types of a text in the order of their declaration; false with `error` filled.
/// `notes` says which annotations have no effect.
bool readIdl(const IdlText &text, std::vector<NamedType> &types, std::vector<std::string> &notes,
             DDS_ErrorText *error);

} // namespace qddsc

#endif
