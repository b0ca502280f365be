// The type objects of a peer, as a type mapping holds them.
#ifndef TESTS_DOMAIN_TYPE_MAPPING_H
#define TESTS_DOMAIN_TYPE_MAPPING_H

#include <algorithm>
#include <map>

#include "type_object.h"
#include "xcdr2_reader.h"

struct Objects {
    qddsdomain::EquivalenceHash root{};
    std::map<qddsdomain::EquivalenceHash, std::vector<uint8_t>> all;
};

/// The complete ones, of which the top type's comes first. Throws what the reader throws.
inline Objects objectsOf(const std::vector<uint8_t> &mapping)
{
    Objects objects;
    qddsdomain::Xcdr2Reader in(mapping.data(), mapping.size());
    in.delimited([] {}); // minimal ones
    in.delimited([&] {
        in.elements([&] {
            qddsdomain::EquivalenceHash hash{};
            in.u8();
            std::copy_n(in.take(hash.size()), hash.size(), hash.begin());
            const uint32_t length = in.u32();
            const uint8_t *object = in.take(length) - 4;
            objects.root = objects.all.empty() ? hash : objects.root;
            objects.all[hash] = {object, object + 4 + length};
        });
    });
    return objects;
}

/// As a peer's types arrive: only what is asked for, while there is any.
inline qddsdomain::TypeAssembler assembled(const Objects &objects)
{
    qddsdomain::TypeAssembler assembler(objects.root);
    while (assembler.assemble() == qddsdomain::TypeAssembler::State::incomplete) {
        for (const qddsdomain::EquivalenceHash &hash : assembler.missing()) {
            const auto found = objects.all.find(hash);
            if (found == objects.all.end()) {
                return assembler;
            }
            assembler.add(hash, found->second.data(), found->second.size());
        }
    }
    return assembler;
}

#endif
