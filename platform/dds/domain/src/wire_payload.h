// Payloads around values: their headers, and what is behind them.
#ifndef QDDSDOMAIN_SRC_WIRE_PAYLOAD_H
#define QDDSDOMAIN_SRC_WIRE_PAYLOAD_H

#include "wire_transcode.h"

namespace qddsdomain {

// A payload may end in padding that its header does not tell of.
constexpr uint64_t MAX_TRAILER = 3;

struct Body {
    const uint8_t *bytes;
    size_t size;
    bool swapped;
    bool delimited;
    Representation representation;
};

inline bool isAppendable(const DDS_TypeCode &structure)
{
    return structure.extensibility == DDS_EXTENSIBILITY_APPENDABLE;
}

// Reads the header in front of a value of the type. Like all here, false with the error filled.
bool openPayload(const DDS_TypeCode &type, const uint8_t *payload, size_t length, Body &body,
                 DDS_ErrorText *error);

// Fills the header of a payload that has its body, and pads it.
void closePayload(const DDS_TypeCode &type, Representation representation, Bytes &payload);

// Takes a value that is in the plain form already.
bool takePlain(const DDS_TypeCode &type, const qddsc::CdrView &view, Bytes &plain,
               DDS_ErrorText *error);

// Takes a value in any form. `openEnd` as for a transcoder; bytes behind the value are dropped
// then.
bool takeRewritten(const DDS_TypeCode &type, const Body &body, const Form &xcdr2, bool openEnd,
                   Bytes &plain, DDS_ErrorText *error);

} // namespace qddsdomain

#endif
