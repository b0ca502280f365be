// What SQLite does not do with files: names, moves and syncs of directories.
#ifndef FERRY_STATE_FILES_H
#define FERRY_STATE_FILES_H

#include <cstdint>
#include <filesystem>
#include <string>

namespace ferry {

/// A hash that finds damage: of bytes, eight at a time. The same on every machine.
std::uint64_t hashOf(const void *bytes, std::size_t length);

/// A text as a part of a file name: letters, digits, '-', '_' and '.' as they are, others as "%41";
/// what is too long ends in its hash.
std::string fileNamePart(const std::string &text);

/// Makes the names in the directory durable; 0 or an errno.
int syncDirectory(const std::filesystem::path &directory);

/// Renames a database and its log to a name of the form "x.db.damaged-20260301T120000Z" that is
/// free. Returns the new name; an empty one if that failed.
std::filesystem::path setAside(const std::filesystem::path &file, const std::string &why);

} // namespace ferry

#endif
