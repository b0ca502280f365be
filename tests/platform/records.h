// Tables that tests read from files.
#ifndef TESTS_PLATFORM_RECORDS_H
#define TESTS_PLATFORM_RECORDS_H

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

using Record = std::vector<std::string>;

// Records are set apart by empty lines and have a field a line, in which \n and \r are line ends
// and "-" alone is nothing; lines that begin with '#' are comments.
inline std::vector<Record> recordsOf(const std::string &name)
{
    std::vector<Record> records;
    std::ifstream file(TESTS_DIR + name);
    bool between = true;
    for (std::string line; std::getline(file, line);) {
        for (size_t at = 0; (at = line.find('\\', at)) != std::string::npos; ++at) {
            if (line[at + 1] == 'n' || line[at + 1] == 'r') {
                line.replace(at, 2, line[at + 1] == 'n' ? "\n" : "\r");
            }
        }
        if (between && !line.empty() && line[0] != '#') {
            records.emplace_back();
        }
        between = line.empty() || (between && line[0] == '#');
        if (!between) {
            records.back().push_back(line == "-" ? "" : line);
        }
    }
    EXPECT_FALSE(records.empty()) << name;
    return records;
}

// All fields of a table in which each is a record of its own.
inline Record linesOf(const std::string &name)
{
    Record lines;
    for (const Record &record : recordsOf(name)) {
        lines.insert(lines.end(), record.begin(), record.end());
    }
    return lines;
}

inline std::vector<uint8_t> fromHex(const std::string &hex)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < hex.size(); i += hex[i] == ' ' ? 1 : 2) {
        if (hex[i] != ' ') {
            bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
        }
    }
    return bytes;
}

#endif
