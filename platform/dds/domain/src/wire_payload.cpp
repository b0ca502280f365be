// See wire_payload.h.
#include "wire_payload.h"

#include "error_text.h"
#include "packets.h"

namespace qddsdomain {

using qddsc::setError;

namespace {

constexpr uint8_t PADDING_BITS = 3;

const char *nameOfRefused(unsigned id)
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

bool openPayload(const DDS_TypeCode &type, const uint8_t *payload, size_t length, Body &body,
                 DDS_ErrorText *error)
{
    const char *name = type.name.c_str();
    if (length < ENCAPSULATION_SIZE) {
        setError(error, "%s: a payload of %zu bytes has no encapsulation header", name, length);
        return false;
    }
    unsigned id = payload[0] * 256U + payload[1];
    const unsigned options = payload[2] * 256U + payload[3];
    if (id == QDOMAIN_MARKED && options > PADDING_BITS) {
        id = options; // the engine would not have let it through
    }
    const auto even = static_cast<Encapsulation>(id & ~1U);
    if (even != Encapsulation::cdrBe && even != Encapsulation::cdr2Be &&
        even != Encapsulation::delimitedCdr2Be) {
        setError(error, "%s: encapsulation 0x%04x (%s) is not supported", name, id,
                 nameOfRefused(id));
        return false;
    }
    body = {payload + ENCAPSULATION_SIZE, length - ENCAPSULATION_SIZE, (id & 1U) == 0,
            even == Encapsulation::delimitedCdr2Be,
            even == Encapsulation::cdrBe ? Representation::xcdr1 : Representation::xcdr2};
    if (body.representation == Representation::xcdr1) {
        return true;
    }
    if (body.delimited != isAppendable(type)) {
        setError(error, "%s: encapsulation 0x%04x is for %s types, this one is not", name, id,
                 body.delimited ? "appendable" : "final");
        return false;
    }
    const size_t padding = payload[3] & PADDING_BITS;
    if (padding > body.size) {
        setError(error, "%s: %zu bytes of padding in a payload of %zu", name, padding, length);
        return false;
    }
    body.size -= padding;
    return true;
}

void closePayload(const DDS_TypeCode &type, Representation representation, Bytes &payload)
{
    Encapsulation id = Encapsulation::cdrLe;
    if (representation == Representation::xcdr2) {
        id = isAppendable(type) ? Encapsulation::delimitedCdr2Le : Encapsulation::cdr2Le;
    }
    const size_t padding = -payload.size() & PADDING_BITS;
    payload.resize(payload.size() + padding, 0);
    payload[0] = 0;
    payload[1] = static_cast<uint8_t>(id);
    payload[2] = 0;
    payload[3] = static_cast<uint8_t>(padding);
}

bool takePlain(const DDS_TypeCode &type, const qddsc::CdrView &view, Bytes &plain,
               DDS_ErrorText *error)
{
    uint64_t size = 0;
    bool padded = false;
    if (!qddsc::checkCdr(type, view, size, padded, error)) {
        return false;
    }
    plain.assign(view.bytes, view.bytes + size);
    if (padded) {
        qddsc::clearPadding(type, plain.data(), size);
    }
    return true;
}

bool takeRewritten(const DDS_TypeCode &type, const Body &body, const Form &xcdr2, bool openEnd,
                   Bytes &plain, DDS_ErrorText *error)
{
    Form form = body.representation == Representation::xcdr1 ? PLAIN_FORM : xcdr2;
    form.swapped = body.swapped;
    Sink sink(plain, 0);
    Transcoder transcoder(form, body.bytes, body.size, PLAIN_FORM, sink);
    if (!transcoder.run(type, openEnd)) {
        const char *path = transcoder.path();
        setError(error, "%s: %s%s%s (byte %llu of %zu)", type.name.c_str(), path,
                 *path == '\0' ? "" : ": ", transcoder.problem(),
                 static_cast<unsigned long long>(transcoder.position()), body.size);
        return false;
    }
    if (body.size - transcoder.position() > MAX_TRAILER && !openEnd) {
        setError(error, "%s: the payload ends at byte %llu of %zu", type.name.c_str(),
                 static_cast<unsigned long long>(transcoder.position()), body.size);
        return false;
    }
    sink.finish();
    uint64_t size = 0;
    bool padded = false;
    return qddsc::checkCdr(type, {plain.data(), plain.size()}, size, padded, error);
}

} // namespace qddsdomain
