// Payloads around values: their headers, and what is behind them.
#ifndef QDDSDOMAIN_SRC_WIRE_PAYLOAD_H
#define QDDSDOMAIN_SRC_WIRE_PAYLOAD_H

#include "qddscdr/transcode.h"
#include "wire.h"

namespace qddsdomain {

using qddscdr::CdrView;
using qddscdr::Form;
using qddscdr::plainForm;
using qddscdr::Sink;
using qddscdr::Transcoder;

struct Body {
    const uint8_t *bytes;
    size_t size;
    bool swapped;
    bool delimited;
    Representation representation;
};

/// Reads the header in front of a value of the type. Like all here, false with the error filled.
bool openPayload(const qddscdr::Type &type, const uint8_t *payload, size_t length, Body &body,
                 DDS_ErrorText *error);

/// Fills the header of a payload that has its body, and pads it.
void closePayload(const qddscdr::Type &type, Representation representation, Bytes &payload);

/// Takes a value that is in the plain form already.
bool takePlain(const qddscdr::Type &type, const CdrView &view, Bytes &plain, DDS_ErrorText *error);

/// Takes a value in any form. `openEnd` as for a transcoder; bytes behind the value are dropped
/// then.
bool takeRewritten(const qddscdr::Type &type, const Body &body, const Form &xcdr2, bool openEnd,
                   Bytes &plain, DDS_ErrorText *error);

} // namespace qddsdomain

#endif
