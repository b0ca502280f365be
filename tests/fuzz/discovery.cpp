// Types that peers announce: rejected with a reason, or made into types that can be announced
// again. The input is a type mapping: a list of type objects with their hashes, which need not fit.
#include <set>

#include "../domain/type_mapping.h"
#include "digest.h"
#include "samples.h"
#include "type_object_codes.h"

using namespace qddsdomain;

namespace {

std::set<Bytes> contents(const Objects &objects)
{
    std::set<Bytes> all;
    for (const auto &each : objects.all) {
        all.insert(each.second);
    }
    return all;
}

// What stands behind a relay asks for the objects by their hashes, and gets the same bytes.
void checkPassage(const Objects &objects)
{
    std::vector<TypeObjectId> ids;
    for (const auto &[hash, object] : objects.all) {
        const auto digest = md5(object.data(), object.size());
        TypeObjectId id(xtypes::EK_COMPLETE, {});
        std::copy_n(digest.begin(), id.second.size(), id.second.begin());
        ids.push_back(id);
    }
    TypePassage passage({1}, {ids.front()}, ids);
    for (const auto &[hash, object] : objects.all) {
        for (const TypeObjectId &id : ids) {
            passage.add(id, object);
        }
    }
    REQUIRE(passage.missing().empty());
    REQUIRE(contents(objectsOf(passage.description().typeMapping)) == contents(objects));
}

bool hasInIdl(const DDS_TypeCode *type, const char *text)
{
    char *idl = DDS_TypeCode_to_idl(type);
    const bool found = std::strstr(idl, text) != nullptr;
    DDS_String_free(idl);
    return found;
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    testing::GTEST_FLAG(throw_on_failure) = true;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Objects objects;
    try {
        objects = objectsOf({data, data + size});
    } catch (const Rejection &) {
        return 0;
    }
    if (objects.all.empty()) {
        return 0;
    }
    const TypeAssembler assembler = assembled(objects);
    const DDS_TypeCode *const type = assembler.type();
    REQUIRE((type != nullptr) + !assembler.problem().empty() + !assembler.missing().empty() == 1);
    checkPassage(objects);
    if (type == nullptr) {
        return 0;
    }
    if (!hasInIdl(type, "@value(-")) { // which the IDL parser refuses
        checkType(type);
    }
    TypeDescription ours;
    DDS_ErrorText error{};
    REQUIRE(describeType(*type, ours, &error));
    // An int8 is announced as char.
    REQUIRE(hasInIdl(type, "int8") || assembled(objectsOf(ours.typeMapping)).type() == type);
    return 0;
}
