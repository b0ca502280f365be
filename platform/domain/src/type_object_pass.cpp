// Types that are announced again as they were received. See TypePassage in type_object.h.
#include <algorithm>

#include "digest.h"
#include "type_object.h"
#include "type_object_codes.h"
#include "xcdr2_writer.h"

namespace qddsdomain {

namespace {

void writeId(Xcdr2Writer &out, const TypeObjectId &id)
{
    out.u8(id.first);
    out.raw(id.second);
}

} // namespace

TypePassage::TypePassage(std::vector<uint8_t> information, std::vector<TypeObjectId> tops,
                         const std::vector<TypeObjectId> &objects)
    : information_(std::move(information)), tops_(std::move(tops))
{
    for (const TypeObjectId &id : objects) {
        objects_[id];
    }
}

void TypePassage::add(const TypeObjectId &id, const std::vector<uint8_t> &object)
{
    const auto digest = md5(object.data(), object.size());
    if (std::equal(id.second.begin(), id.second.end(), digest.begin())) {
        objects_[id] = object;
    }
}

std::vector<TypeObjectId> TypePassage::missing() const
{
    std::vector<TypeObjectId> ids;
    for (const auto &[id, object] : objects_) {
        if (object.empty()) {
            ids.push_back(id);
        }
    }
    return ids;
}

/// The mapping has the objects by their forms, and which minimal type a complete one is. Of the
/// types inside nobody asks for that.
TypeDescription TypePassage::description() const
{
    if (objects_.empty() || !missing().empty()) {
        return {};
    }
    Xcdr2Writer out;
    for (const uint8_t form : {xtypes::EK_MINIMAL, xtypes::EK_COMPLETE}) {
        std::vector<const TypeObjectId *> ids;
        for (const auto &[id, object] : objects_) {
            if (id.first == form) {
                ids.push_back(&id);
            }
        }
        out.sequence(ids, [&](const TypeObjectId *id) {
            writeId(out, *id);
            out.align(4);
            out.raw(objects_.at(*id));
        });
    }
    const std::vector<int> pairs(tops_.size() == 2 ? 1 : 0);
    out.sequence(pairs, [&](int) {
        writeId(out, tops_.back());
        writeId(out, tops_.front());
    });
    return {information_, out.bytes()};
}

} // namespace qddsdomain
