// Where `ferry new config` looks for a stream: a topic of a DDS domain, a table of a database.
#ifndef FERRY_LAUNCHER_STREAM_SOURCE_H
#define FERRY_LAUNCHER_STREAM_SOURCE_H

#include <chrono>
#include <filesystem>
#include <string>

#include "engine/discovery_rule.h"

namespace ferry {

struct StreamSource {
    /// The adapter, by its short name, and whether it is one in Java.
    std::string adapter;
    bool isJava = false;
    /// What the adapter calls its streams: "topic".
    std::string noun;
    /// Properties of the connection, as the user writes them.
    Properties properties;
    /// Further ones that only the look needs.
    Properties forLooking;
    /// Properties of the reader.
    Properties ofReader;
    std::string stream;
};

/// Opens the connection and waits for its announcements. Returns the exit code; if that is exitOk
/// `found` is the stream, with its type. Throws std::runtime_error if there is none.
int findStream(const StreamSource &source, std::chrono::milliseconds wait,
               const std::filesystem::path &javaHome, AnnouncedStream &found);

} // namespace ferry

#endif
