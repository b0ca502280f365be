// What may go to a terminal or into the log. Names of streams and types are the peers', causes of
// failures the adapters': neither may move a cursor, forge a line or show a password.
#ifndef FERRY_CONFIG_PRINTABLE_H
#define FERRY_CONFIG_PRINTABLE_H

#include <string>
#include <string_view>

namespace ferry {

/// Whether line feeds and tabs of a text are its own or somebody else's.
enum class Layout { none, kept };

/// The text in UTF-8 with escapes (`\n`, `\x1b`, `\u202e`) for control characters, for those that
/// turn the direction of writing, for line separators and for bytes that are no UTF-8.
std::string printable(std::string_view text, Layout layout = Layout::none);

/// The text with `***` in place of what stands before the `@` of a URL and of what stands behind
/// the name of a secret (`password=`, `"token": `, `<secret>`). Of a doubtful text too much is
/// hidden rather than too little.
std::string withoutSecrets(std::string_view text);

/// Both: all that ferry writes to standard error or the log file has been through this.
std::string forLog(std::string_view text, Layout layout = Layout::none);

} // namespace ferry

#endif
