// Payloads and samples: the shortest way from one to the other. See wire.h.
#include "wire.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "wire_key_type.h"
#include "wire_payload.h"

namespace qddsdomain {

namespace {

// Whether XCDR2 aligns nothing inside in another way, and delimits nothing. `keys`: as for a key.
bool isSameInXcdr2(const DDS_TypeCode &type, bool keys, bool outermost = false)
{
    const auto inner = [keys](const qddsc::Member &member) {
        return isSameInXcdr2(*member.type->resolved, keys);
    };
    uint64_t count = 0;
    switch (type.kind) {
    case DDS_TK_STRUCT:
        return (keys || outermost || !isAppendable(type)) &&
               std::all_of(type.members.begin(), type.members.end(), inner);
    case DDS_TK_SEQUENCE:
        return qddsc::isPrimitive(type.content->resolved->kind) && type.layout.alignment <= 4;
    case DDS_TK_ARRAY:
        return qddsc::isPrimitive(innermostElement(type, count).kind) && type.layout.alignment <= 4;
    default:
        return type.layout.alignment <= 4;
    }
}

// The body without its outermost delimiter, as far as both are well formed.
bool takeSame(const DDS_TypeCode &type, const Body &body, Bytes &plain, DDS_ErrorText *error)
{
    qddsc::CdrView view = {body.bytes, body.size};
    if (body.delimited) {
        if (view.size < sizeof(uint32_t) || view.count(0) > view.size - sizeof(uint32_t) ||
            view.size - sizeof(uint32_t) - view.count(0) > MAX_TRAILER) {
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
    const DDS_TypeCode &structure = *type->resolved;
    const std::lock_guard<std::mutex> guard(mutex);
    const auto found = types.find(&structure);
    if (found != types.end()) {
        return found->second.get();
    }
    auto made = std::unique_ptr<WireType>(new WireType);
    made->whole_ = {&structure, isSameInXcdr2(structure, false, true)};
    if (structure.keyed) {
        const DDS_TypeCode *key = makeKeyType(structure, error);
        if (key == nullptr) {
            return nullptr;
        }
        made->key_ = {key, isSameInXcdr2(*key, true)};
        made->hashIsKey_ = {fitsAlways(*key, PLAIN_FORM, sizeof(KeyHash)),
                            fitsAlways(*key, XCDR2_KEY_FORM, sizeof(KeyHash))};
    }
    return types.emplace(&structure, std::move(made)).first->second.get();
}

bool WireType::decode(const uint8_t *payload, size_t length, Bytes &plain,
                      DDS_ErrorText *error) const
{
    const DDS_TypeCode &type = *whole_.type;
    Body body{};
    if (!openPayload(type, payload, length, body, error)) {
        return false;
    }
    const bool same = body.representation == Representation::xcdr1 || whole_.sameInXcdr2;
    if (same && !body.swapped) {
        // What is refused may still be another version of the type.
        if (takeSame(type, body, plain, isAppendable(type) ? nullptr : error)) {
            return true;
        }
        if (!isAppendable(type)) {
            return false;
        }
    }
    const bool openEnd = isAppendable(type) && body.representation == Representation::xcdr1;
    return takeRewritten(type, body, XCDR2_FORM, openEnd, plain, error);
}

bool WireType::encode(const uint8_t *plain, size_t length, Representation representation,
                      Bytes &payload) const
{
    const DDS_TypeCode &type = *whole_.type;
    const bool plainForm = representation == Representation::xcdr1;
    if (plainForm || whole_.sameInXcdr2) {
        const bool delimited = !plainForm && isAppendable(type);
        const auto size = static_cast<uint32_t>(length);
        const size_t start = ENCAPSULATION_SIZE + (delimited ? sizeof size : 0);
        payload.resize(start + length);
        if (delimited) {
            std::memcpy(payload.data() + ENCAPSULATION_SIZE, &size, sizeof size);
        }
        std::memcpy(payload.data() + start, plain, length);
    } else {
        payload.resize(std::max(payload.size(), ENCAPSULATION_SIZE));
        Sink sink(payload, ENCAPSULATION_SIZE);
        if (!Transcoder(PLAIN_FORM, plain, length, XCDR2_FORM, sink).run(type)) {
            return false;
        }
        sink.finish();
    }
    closePayload(type, representation, payload);
    return true;
}

} // namespace qddsdomain
