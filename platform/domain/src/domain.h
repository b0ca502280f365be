// The domains that this process takes part in. The engine has one set of network settings a domain
// and process; participants share it.
#ifndef QDDSDOMAIN_SRC_DOMAIN_H
#define QDDSDOMAIN_SRC_DOMAIN_H

#include "engine.h"

#include <memory>
#include <string>

#include "qddsdomain/participant.h"

namespace qddsdomain {

/// While it lives the domain does. Any thread may drop it.
using DomainLease = std::shared_ptr<const int32_t>;

/// Null, with the error filled, when a setting is not valid, the process already has the domain
/// with other settings, or the engine rejects.
DomainLease leaseDomain(const DDS_ParticipantSettings &settings, DDS_ErrorText *error);

/// Whether the process takes part in the domain as one of those that are secured.
bool isSecured(int32_t domain);

/// Hands a line to the innermost collector of this thread.
void collect(const std::string &line);

/// Collects what the engine logs on this thread while it lives: that is where it says why something
/// cannot be made.
class EngineComplaints {
public:
    EngineComplaints();
    ~EngineComplaints();
    EngineComplaints(const EngineComplaints &) = delete;
    EngineComplaints &operator=(const EngineComplaints &) = delete;

    /// "out of resources: add_peer_address: nosuchhost: not found"
    std::string text(dds_return_t code) const;

private:
    friend void collect(const std::string &line);
    std::string lines;
    EngineComplaints *outer;
};

} // namespace qddsdomain

#endif
