// Memory for messages. One thread makes what another one frees, thousands at a time: the
// general-purpose heap takes a lock for each of these, and here it is one for a chain of them.
#ifndef QDDSDOMAIN_SRC_MESSAGE_POOL_H
#define QDDSDOMAIN_SRC_MESSAGE_POOL_H

#include <cstddef>

namespace qddsdomain {

/// Any thread. Null when memory is short.
void *allocateBlock(size_t size);
/// `size` is what it was allocated with.
void freeBlock(void *block, size_t size);

} // namespace qddsdomain

#endif
