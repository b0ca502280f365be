// One question to a relay that runs, from another process.
#ifndef FERRY_CONTROL_CLIENT_H
#define FERRY_CONTROL_CLIENT_H

#include <chrono>
#include <filesystem>
#include <string>

namespace ferry {

struct Reply {
    /// The line that came back, without its end.
    std::string line;
    /// Why there is none; else "".
    std::string problem;
};

/// Sends a line to the relay whose socket `path` is, and waits for its answer.
Reply ask(const std::filesystem::path &path, const std::string &line,
          std::chrono::milliseconds limit = std::chrono::milliseconds(10000));

} // namespace ferry

#endif
