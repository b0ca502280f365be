// A sample as JSON, for people.
#ifndef FERRY_STATE_SAMPLE_JSON_H
#define FERRY_STATE_SAMPLE_JSON_H

#include <cstddef>
#include <string>

#include "qddsc/dynamic_data.h"

namespace ferry {

/// The sample in one line, members by their names, enumerators by theirs; a number that JSON has
/// none for is a text ("NaN"). It ends with "..." where it would pass `limit` bytes.
std::string sampleAsJson(const DDS_DynamicData &sample, std::size_t limit);

} // namespace ferry

#endif
