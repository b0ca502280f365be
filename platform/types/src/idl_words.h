// The words of IDL that this reader treats in a way of its own.
#ifndef QDDSC_SRC_IDL_WORDS_H
#define QDDSC_SRC_IDL_WORDS_H

#include <string>
#include <string_view>

namespace qddsc {

/// Begins a definition that no type code carries and the parser does not take.
bool isUncarriedDefinition(std::string_view word);

/// Is a type that no type code carries and the parser does not take.
bool isUncarriedType(std::string_view word);

/// Whether a word stands where only a name can, a declarator or an enumerator, and is one that the
/// parser takes for a name only with an underscore in front.
bool isKeywordAsName(std::string_view word, char behind);

/// Words that other compilers take in another form, none of them longer for the parser.
std::string_view asParserHasIt(std::string_view word);

/// Of an annotation that the parser understands and the reader judges; in small letters.
bool isKnownAnnotation(std::string_view word);

/// The annotation that a word of four letters and more is a slip of; "" if there is none. "kye" is
/// one of "key", as a key is what nobody wants to lose.
std::string nearestAnnotation(std::string_view word);

} // namespace qddsc

#endif
