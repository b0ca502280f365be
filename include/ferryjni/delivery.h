/* Deliveries: what a reader or a writer guarantees of the samples that go through it.
 *
 * A native plug-in may export a function that says so, named like its entry point with "_delivery"
 * behind it: FerryAdapter_dds_create goes with FerryAdapter_dds_create_delivery. The host makes the
 * guarantee of a route of what its ends declare. Of a plug-in without the function nothing is
 * known: its readers repeat nothing, and a write that counts short is taken to have taken nothing,
 * so that all of it is written again.
 *
 * A host takes the return of a loan as the acknowledgement, and deletes a reader with its loan
 * still out when the samples could not be delivered. */
#ifndef FERRYJNI_DELIVERY_H
#define FERRYJNI_DELIVERY_H

#include <stdint.h>

#include "ferryjni/export.h"
#include "ferryjni/properties.h"

FERRYJNI_BEGIN

/** A reader: what was lent and not returned is lent again by a reader that is made anew with the
 * same properties, also by one in a new process. What was returned may be lent again, too. */
#define FERRY_DELIVERY_REPEATS 0x01U
/** A writer: a count says that the first so many samples of the call were taken. Those behind them
 * are to be written again. */
#define FERRY_DELIVERY_COUNTS_PREFIX 0x02U
/** A writer: a write that fails or counts short took nothing, whatever its count says. */
#define FERRY_DELIVERY_TAKES_NOTHING 0x04U
/** A writer: samples that are written again, in their order, change nothing. */
#define FERRY_DELIVERY_IDEMPOTENT 0x08U
/** A writer: it keeps the publication_sequence_number of the last sample together with the samples,
 * in one transaction, and counts samples as taken that are not above it, without writing them. A
 * sample whose number is below zero is written whatever was written before, and its number is not
 * kept. A sample without a number is rejected. */
#define FERRY_DELIVERY_ONCE 0x10U
/** A reader: the publication_sequence_number of its samples rises as long as they have one
 * publication_handle, and a sample that is lent again has the two that it had before. A store then
 * leaves out what it has had. A sample without a number, 0, is never left out. */
#define FERRY_DELIVERY_NUMBERS 0x20U
/** A reader or a writer: it carries samples of opaque types (DDS_TypeCode_get_opaque), which are
 * messages that nobody looks into. */
#define FERRY_DELIVERY_OPAQUE 0x40U

/** The function that a plug-in may export. Callable on any thread, before the entry point and
 * without it.
 *
 * @param role       FERRY_SETTING_OF_READER or FERRY_SETTING_OF_WRITER.
 * @param properties of the reader or writer, behind those of its session: of two of one name the
 *                   later one counts. Null when there are none. The function keeps nothing of them.
 * @return FERRY_DELIVERY_... bits; 0 also for properties that no reader or writer could be made
 *         with. */
typedef uint32_t (*FERRY_DeliveryFn)(uint32_t role, const QEL_FerrionProperties *properties);

FERRYJNI_END

#endif
