// What connections announce, as text for people.
#ifndef FERRY_PROCESS_STREAM_TABLE_H
#define FERRY_PROCESS_STREAM_TABLE_H

#include "engine/discovery_rule.h"

namespace ferry {

/// A line a stream below a line of headings, in columns; "no streams" when there are none.
std::vector<std::string> streamTable(const Configuration &configuration,
                                     const std::vector<AnnouncedStream> &streams);

/// The IDL of each type that is announced, or only of the one that is named: complete texts, which
/// may repeat definitions that they share.
std::vector<std::string> streamTypes(const std::vector<AnnouncedStream> &streams,
                                     const std::string &typeName);

} // namespace ferry

#endif
