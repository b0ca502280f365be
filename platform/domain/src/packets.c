/* See packets.h. */
#include "packets.h"

#include <string.h>

enum {
    HEADER_SIZE = 20,
    SUBMESSAGE_HEADER_SIZE = 4,
    DATA = 0x15,
    DATA_FRAG = 0x16,
    LITTLE_ENDIAN_FLAG = 0x01,
    INLINE_QOS_FLAG = 0x02,
    PAYLOAD_FLAGS = 0x0c, /* data or key */
    DATA_SIZE = 20,       /* before inline QoS */
    DATA_FRAG_SIZE = 32,
    FRAGMENT_NUMBER = 20, /* where it stands */
    SENTINEL = 1,
    LAST_KNOWN = 0x000b,
    XML = 0x0004
};

static unsigned number(const uint8_t *bytes, int little)
{
    return little ? bytes[0] | (unsigned)bytes[1] << 8 : (unsigned)bytes[0] << 8 | bytes[1];
}

/* Behind a parameter list that ends in [at, end); 0 when it does not. */
static size_t behind_parameters(const uint8_t *body, size_t at, size_t end, int little)
{
    while (end - at >= SUBMESSAGE_HEADER_SIZE) {
        const unsigned id = number(body + at, little);
        const size_t length = number(body + at + 2, little);
        at += SUBMESSAGE_HEADER_SIZE;
        if (id == SENTINEL) {
            return at;
        }
        if (length > end - at) {
            return 0;
        }
        at += length;
    }
    return 0;
}

static void mark(uint8_t *payload)
{
    const unsigned id = number(payload, 0);
    if (id > LAST_KNOWN || (id & ~1U) == XML) {
        payload[2] = payload[0];
        payload[3] = payload[1];
        payload[0] = QDOMAIN_MARKED >> 8;
        payload[1] = QDOMAIN_MARKED & 0xff;
    }
}

/* Whether the payload of a data submessage begins in it. */
static int begins_in(unsigned kind, const uint8_t *body, size_t size, unsigned flags)
{
    if (kind == DATA) {
        return size >= DATA_SIZE && (flags & PAYLOAD_FLAGS) != 0;
    }
    static const uint8_t first[2][4] = {{0, 0, 0, 1}, {1, 0, 0, 0}};
    return size >= DATA_FRAG_SIZE &&
           memcmp(body + FRAGMENT_NUMBER, first[flags & LITTLE_ENDIAN_FLAG], sizeof *first) == 0;
}

static void look_at_data(unsigned kind, uint8_t *body, size_t size, unsigned flags)
{
    const int little = (flags & LITTLE_ENDIAN_FLAG) != 0;
    if (!begins_in(kind, body, size, flags)) {
        return;
    }
    size_t at = 4 + (size_t)number(body + 2, little); /* octetsToInlineQos counts from behind it */
    if (at > size) {
        return;
    }
    if ((flags & INLINE_QOS_FLAG) != 0) {
        at = behind_parameters(body, at, size, little);
    }
    if (at != 0 && size - at >= SUBMESSAGE_HEADER_SIZE) {
        mark(body + at);
    }
}

void qddsdomain_mark_unknown_encapsulations(uint8_t *packet, size_t size)
{
    if (size < HEADER_SIZE || memcmp(packet, "RTPS", 4) != 0) {
        return;
    }
    for (size_t at = HEADER_SIZE; size - at >= SUBMESSAGE_HEADER_SIZE;) {
        const unsigned kind = packet[at];
        const unsigned flags = packet[at + 1];
        size_t length = number(packet + at + 2, flags & LITTLE_ENDIAN_FLAG);
        at += SUBMESSAGE_HEADER_SIZE;
        const int is_data = kind == DATA || kind == DATA_FRAG;
        if (length == 0 && is_data) {
            length = size - at; /* the last one may say nothing */
        }
        if (length > size - at) {
            return;
        }
        if (is_data) {
            look_at_data(kind, packet + at, length, flags);
        }
        at += length;
    }
}
