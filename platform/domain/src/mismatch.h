// Why endpoints that a participant knows of are not matched with one of its own.
#ifndef QDDSDOMAIN_SRC_MISMATCH_H
#define QDDSDOMAIN_SRC_MISMATCH_H

#include "engine.h"

#include <string>

namespace qddsdomain {

/// An endpoint of this process.
struct OwnEndpoint {
    dds_entity_t participant;
    dds_entity_t entity;
    dds_entity_t group; // its publisher or subscriber, for the partitions
    bool isWriter;
};

/// "3 readers do not match: durability (1), partition "north" (2)": of those on the same topic that
/// it would talk to. Empty when all match, or there are none. Asks the engine for every endpoint of
/// the domain: for people, not for each sample.
std::string mismatchesOf(const OwnEndpoint &own);

} // namespace qddsdomain

#endif
