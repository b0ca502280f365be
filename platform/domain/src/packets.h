/* What is changed in packets before the engine sees them. */
#ifndef QDDSDOMAIN_SRC_PACKETS_H
#define QDDSDOMAIN_SRC_PACKETS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ddsi_sertype;

/* In front of the engine: a data message whose encapsulation it does not know is a malformed packet
 * to it. It never gets past one: neither takes it as received nor reports it, and the writer sends
 * it for ever. So that encapsulation is moved into the options behind it, and the message says
 * QDOMAIN_MARKED, which the engine hands to the type plug-in, and that rejects. `packet`
 * is changed in place; any bytes are allowed in it. */
void qddsdomain_mark_unknown_encapsulations(uint8_t *packet, size_t size);

/* PL_CDR, which the type plug-in does not take either, in big-endian spelling. */
enum { QDOMAIN_MARKED = 0x0002 };

/* Has all packets that come over UDP for the domain of a registered type pass through here. */
void qddsdomain_watch_packets(const struct ddsi_sertype *type);

#ifdef __cplusplus
}
#endif

#endif
