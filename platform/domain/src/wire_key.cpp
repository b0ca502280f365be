// Keys: their payloads, their hashes, and their way out of and back into samples. See wire.h.
#include <algorithm>

#include "digest.h"
#include "wire_key_type.h"
#include "wire_payload.h"

namespace qddsdomain {

namespace {

/// Longer keys take memory while they are hashed.
constexpr size_t hashBlock = 512;

Form keyForm(Representation representation, bool swapped)
{
    Form form = representation == Representation::xcdr1 ? plainForm : qddscdr::xcdr2KeyForm;
    form.swapped = swapped;
    return form;
}

/// Rewrites between the plain form of a sample and that of its key.
bool convert(const qddscdr::Type &type, const uint8_t *bytes, size_t size, qddscdr::Members members,
             Bytes &result)
{
    Sink sink(result, 0);
    if (!Transcoder(plainForm, bytes, size, plainForm, sink, members).run(type)) {
        return false;
    }
    sink.finish();
    return true;
}

/// Short keys are sent with zeros behind them.
bool dropZeros(Body &body)
{
    constexpr std::array<uint8_t, 4> zeros{};
    if (body.representation != Representation::xcdr1 || body.size > sizeof(KeyHash) ||
        body.size <= zeros.size() ||
        !std::equal(zeros.begin(), zeros.end(), body.bytes + body.size - zeros.size())) {
        return false;
    }
    body.size -= zeros.size();
    return true;
}

} // namespace

bool WireType::decodeKey(const uint8_t *payload, size_t length, Bytes &plainKey,
                         DDS_ErrorText *error) const
{
    const qddscdr::Type &type = *key_.type;
    Body body{};
    if (!openPayload(type, payload, length, body, error)) {
        return false;
    }
    const auto take = [&](DDS_ErrorText *problem) {
        if (!body.swapped && (body.representation == Representation::xcdr1 || key_.sameInXcdr2) &&
            takePlain(type, {body.bytes, body.size}, plainKey, nullptr)) {
            return true;
        }
        // Other makes put delimiters in front of structs here, too. The two cannot be mixed up: 4
        // bytes too many are rejected.
        return takeRewritten(type, body, qddscdr::xcdr2KeyForm, false, plainKey, problem) ||
               (body.representation == Representation::xcdr2 &&
                takeRewritten(type, body, qddscdr::xcdr2Form, false, plainKey, nullptr));
    };
    bool taken = take(error);
    while (!taken && dropZeros(body)) {
        taken = take(nullptr);
    }
    return taken;
}

bool WireType::encodeKey(const Bytes &plainKey, Representation representation, Bytes &payload) const
{
    payload.resize(std::max(payload.size(), encapsulationSize));
    Sink sink(payload, encapsulationSize);
    const Form form = keyForm(representation, false);
    if (!Transcoder(plainForm, plainKey.data(), plainKey.size(), form, sink).run(*key_.type)) {
        return false;
    }
    sink.finish();
    closePayload(*key_.type, representation, payload);
    return true;
}

bool WireType::keyOf(const uint8_t *plain, size_t length, Bytes &plainKey) const
{
    return convert(*whole_.type, plain, length, qddscdr::Members::keysOfAll, plainKey);
}

bool WireType::sampleOf(const Bytes &plainKey, Bytes &plain) const
{
    return convert(*whole_.type, plainKey.data(), plainKey.size(), qddscdr::Members::allOfKeys,
                   plain);
}

KeyHash WireType::keyHash(const Bytes &plainKey, Representation representation) const
{
    const Form form = keyForm(representation, true);
    std::array<uint8_t, hashBlock> block;
    Sink sink(block.data(), block.size());
    if (Transcoder(plainForm, plainKey.data(), plainKey.size(), form, sink).run(*key_.type)) {
        if (!hashIsKey(representation)) {
            return md5(block.data(), sink.position());
        }
        KeyHash hash{};
        std::copy_n(block.begin(), sink.position(), hash.begin());
        return hash;
    }
    Bytes bytes;
    Sink growing(bytes, 0);
    if (!Transcoder(plainForm, plainKey.data(), plainKey.size(), form, growing).run(*key_.type)) {
        return {};
    }
    return md5(bytes.data(), growing.position());
}

bool WireType::hashIsKey(Representation representation) const
{
    return hashIsKey_[static_cast<size_t>(representation)];
}

bool WireType::keyFromHash(const KeyHash &hash, Bytes &plainKey,
                           Representation representation) const
{
    Sink sink(plainKey, 0);
    Transcoder transcoder(keyForm(representation, true), hash.data(), hash.size(), plainForm, sink);
    if (!hashIsKey(representation) || !transcoder.run(*key_.type)) {
        return false;
    }
    sink.finish();
    uint64_t size = 0;
    bool padded = false;
    return std::all_of(hash.begin() + static_cast<std::ptrdiff_t>(transcoder.position()),
                       hash.end(), [](uint8_t byte) { return byte == 0; }) &&
           qddscdr::checkCdr(*key_.type, {plainKey.data(), plainKey.size()}, size, padded, nullptr);
}

} // namespace qddsdomain
