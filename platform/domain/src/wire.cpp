// Payloads and samples: the shortest way from one to the other. See wire.h.
#include "wire.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "qddsc/type_record.h"
#include "wire_key_type.h"
#include "wire_payload.h"

namespace qddsdomain {

namespace {

/// Whether XCDR2 aligns nothing inside in another way, and delimits nothing. `keys`: as for a key.
bool isSameInXcdr2(const qddscdr::Type &type, bool keys, bool outermost = false)
{
    const auto inner = [keys](const qddscdr::Member &member) {
        return isSameInXcdr2(*member.type, keys);
    };
    uint64_t count = 0;
    switch (type.kind) {
    case DDS_TK_STRUCT:
        return (keys || outermost || !type.appendable) &&
               std::all_of(type.members.begin(), type.members.end(), inner);
    case DDS_TK_SEQUENCE:
        return qddscdr::isPrimitive(type.element->kind) && type.layout.alignment <= 4;
    case DDS_TK_ARRAY:
        return qddscdr::isPrimitive(innermostElement(type, count).kind) &&
               type.layout.alignment <= 4;
    default:
        return type.layout.alignment <= 4;
    }
}

/// The body without its outermost delimiter, as far as both are well formed.
bool takeSame(const qddscdr::Type &type, const Body &body, Bytes &plain, DDS_ErrorText *error)
{
    CdrView view = {body.bytes, body.size};
    if (body.delimited) {
        if (view.size < sizeof(uint32_t) || view.count(0) > view.size - sizeof(uint32_t) ||
            view.size - sizeof(uint32_t) - view.count(0) > qddscdr::maxTrailer) {
            return false;
        }
        view = {body.bytes + sizeof(uint32_t), view.count(0)};
    }
    return takePlain(type, view, plain, error);
}

} // namespace

const WireType *WireType::of(const DDS_TypeCode *type, DDS_ErrorText *error)
{
    static std::mutex mutex;
    static auto &types = *new std::unordered_map<const DDS_TypeCode *, std::unique_ptr<WireType>>;
    const DDS_TypeCode *structure = DDS_TypeCode_resolve(type);
    const std::lock_guard<std::mutex> guard(mutex);
    const auto found = types.find(structure);
    if (found != types.end()) {
        return found->second.get();
    }
    auto made = std::unique_ptr<WireType>(new WireType);
    const qddscdr::Type &record = *DDS_TypeCode_get_record(structure);
    made->whole_ = {structure, &record, isSameInXcdr2(record, false, true)};
    made->opaque_ = DDS_TypeCode_get_opaque(structure);
    if (record.keyed) {
        const DDS_TypeCode *key = makeKeyType(structure, error);
        if (key == nullptr) {
            return nullptr;
        }
        const qddscdr::Type &keyRecord = *DDS_TypeCode_get_record(key);
        made->key_ = {key, &keyRecord, isSameInXcdr2(keyRecord, true)};
        made->hashIsKey_ = {fitsAlways(keyRecord, plainForm, sizeof(KeyHash)),
                            fitsAlways(keyRecord, qddscdr::xcdr2KeyForm, sizeof(KeyHash))};
    }
    return types.emplace(structure, std::move(made)).first->second.get();
}

bool WireType::decode(const uint8_t *payload, size_t length, Bytes &plain,
                      DDS_ErrorText *error) const
{
    const qddscdr::Type &type = *whole_.type;
    Body body{};
    if (!openPayload(type, payload, length, body, error)) {
        return false;
    }
    const bool same = body.representation == Representation::xcdr1 || whole_.sameInXcdr2;
    if (same && !body.swapped) {
        // What is rejected may still be another version of the type.
        if (takeSame(type, body, plain, type.appendable ? nullptr : error)) {
            return true;
        }
        if (!type.appendable) {
            return false;
        }
    }
    const bool openEnd = type.appendable && body.representation == Representation::xcdr1;
    return takeRewritten(type, body, qddscdr::xcdr2Form, openEnd, plain, error);
}

bool WireType::encode(const uint8_t *plain, size_t length, Representation representation,
                      Bytes &payload) const
{
    const qddscdr::Type &type = *whole_.type;
    const bool isPlain = representation == Representation::xcdr1;
    if (isPlain || whole_.sameInXcdr2) {
        const bool delimited = !isPlain && type.appendable;
        const auto size = static_cast<uint32_t>(length);
        const size_t start = encapsulationSize + (delimited ? sizeof size : 0);
        payload.resize(start + length);
        if (delimited) {
            std::memcpy(payload.data() + encapsulationSize, &size, sizeof size);
        }
        std::memcpy(payload.data() + start, plain, length);
    } else {
        payload.resize(std::max(payload.size(), encapsulationSize));
        Sink sink(payload, encapsulationSize);
        if (!Transcoder(plainForm, plain, length, qddscdr::xcdr2Form, sink).run(type)) {
            return false;
        }
        sink.finish();
    }
    closePayload(type, representation, payload);
    return true;
}

} // namespace qddsdomain
