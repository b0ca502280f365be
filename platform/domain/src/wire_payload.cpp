// See wire_payload.h.
#include "wire_payload.h"

#include "packets.h"
#include "qddscdr/error_text.h"

namespace qddsdomain {

using qddscdr::setError;

namespace {

constexpr uint8_t paddingBits = 3;

const char *nameOfRejected(unsigned id)
{
    switch (id & ~1U) {
    case 0x0002:
        return "PL_CDR";
    case 0x0004:
        return "XML";
    case 0x000a:
        return "PL_CDR2";
    default:
        return "of unknown kind";
    }
}

} // namespace

bool openPayload(const qddscdr::Type &type, const uint8_t *payload, size_t length, Body &body,
                 DDS_ErrorText *error)
{
    const char *name = type.name.data();
    if (length < encapsulationSize) {
        setError(error, "%s: a payload of %zu bytes has no encapsulation header", name, length);
        return false;
    }
    unsigned id = payload[0] * 256U + payload[1];
    const unsigned options = payload[2] * 256U + payload[3];
    if (id == QDOMAIN_MARKED && options > paddingBits) {
        id = options; // the engine would not have let it through
    }
    const auto even = static_cast<Encapsulation>(id & ~1U);
    if (even != Encapsulation::cdrBe && even != Encapsulation::cdr2Be &&
        even != Encapsulation::delimitedCdr2Be) {
        setError(error, "%s: encapsulation 0x%04x (%s) is not supported", name, id,
                 nameOfRejected(id));
        return false;
    }
    body = {payload + encapsulationSize, length - encapsulationSize, (id & 1U) == 0,
            even == Encapsulation::delimitedCdr2Be,
            even == Encapsulation::cdrBe ? Representation::xcdr1 : Representation::xcdr2};
    if (body.representation == Representation::xcdr1) {
        return true;
    }
    if (body.delimited != type.appendable) {
        setError(error, "%s: encapsulation 0x%04x is for %s types, this one is not", name, id,
                 body.delimited ? "appendable" : "final");
        return false;
    }
    const size_t padding = payload[3] & paddingBits;
    if (padding > body.size) {
        setError(error, "%s: %zu bytes of padding in a payload of %zu", name, padding, length);
        return false;
    }
    body.size -= padding;
    return true;
}

void closePayload(const qddscdr::Type &type, Representation representation, Bytes &payload)
{
    Encapsulation id = Encapsulation::cdrLe;
    if (representation == Representation::xcdr2) {
        id = type.appendable ? Encapsulation::delimitedCdr2Le : Encapsulation::cdr2Le;
    }
    const size_t padding = -payload.size() & paddingBits;
    payload.resize(payload.size() + padding, 0);
    payload[0] = 0;
    payload[1] = static_cast<uint8_t>(id);
    payload[2] = 0;
    payload[3] = static_cast<uint8_t>(padding);
}

bool takePlain(const qddscdr::Type &type, const qddscdr::CdrView &view, Bytes &plain,
               DDS_ErrorText *error)
{
    uint64_t size = 0;
    bool padded = false;
    if (!qddscdr::checkCdr(type, view, size, padded, error)) {
        return false;
    }
    plain.assign(view.bytes, view.bytes + size);
    if (padded) {
        qddscdr::clearPadding(type, plain.data(), size);
    }
    return true;
}

bool takeRewritten(const qddscdr::Type &type, const Body &body, const Form &xcdr2, bool openEnd,
                   Bytes &plain, DDS_ErrorText *error)
{
    Form form = body.representation == Representation::xcdr1 ? plainForm : xcdr2;
    form.swapped = body.swapped;
    Sink sink(plain, 0);
    Transcoder transcoder(form, body.bytes, body.size, plainForm, sink);
    if (!transcoder.run(type, openEnd)) {
        const char *path = transcoder.path();
        setError(error, "%s: %s%s%s (byte %llu of %zu)", type.name.data(), path,
                 *path == '\0' ? "" : ": ", transcoder.problem(),
                 static_cast<unsigned long long>(transcoder.position()), body.size);
        return false;
    }
    if (body.size - transcoder.position() > qddscdr::maxTrailer && !openEnd) {
        setError(error, "%s: the payload ends at byte %llu of %zu", type.name.data(),
                 static_cast<unsigned long long>(transcoder.position()), body.size);
        return false;
    }
    sink.finish();
    uint64_t size = 0;
    bool padded = false;
    return qddscdr::checkCdr(type, {plain.data(), plain.size()}, size, padded, error);
}

} // namespace qddsdomain
