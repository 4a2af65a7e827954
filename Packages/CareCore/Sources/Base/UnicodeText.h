#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text made from bytes that may be no text at all.
namespace tidyro {

/// Whether no byte is 0x80 or above. Reads all of them, many at once.
[[nodiscard]] bool isASCII(std::string_view bytes);

/// One code point in UTF-8; U+FFFD for one that does not exist.
[[nodiscard]] std::string utf8Text(char32_t codePoint);

/// The bytes of the first character of `bytes`, which are not empty; an invalid sequence counts as
/// one, as far as `repairedUTF8` makes one of it.
[[nodiscard]] std::size_t characterLength(std::string_view bytes);

/// `bytes` as UTF-8, each invalid sequence replaced by one U+FFFD. Never fails.
[[nodiscard]] std::string repairedUTF8(std::string_view bytes);

/// `bytes` repaired, each code point in its simple lower case, whatever the locale.
[[nodiscard]] std::string lowercased(std::string_view bytes);

/// `bytes` repaired, case-folded and composed: the same for any two names that a disk which does
/// not tell cases or compositions apart takes for one.
[[nodiscard]] std::string folded(std::string_view bytes);

/// `bytes` as a search compares them: repaired, case-folded, without accents, composed. Accents are
/// marks that change how a letter is read or stressed, in any script; signs that stand for sounds
/// of their own stay (the vowels of Devanagari or Thai, the voicing of kana), or different words
/// would be one. Folding what is folded changes nothing. Time grows with the length only.
[[nodiscard]] std::string searchFolded(std::string_view bytes);

/// `bytes` as a person may safely see them on a terminal: control characters, line and paragraph
/// separators and marks that turn the writing direction become visible escapes ("\n", "\x1B",
/// "\u{202E}"), bytes that are no UTF-8 become "\xFF" escapes, everything else stays. A name must
/// not drive the terminal.
[[nodiscard]] std::string terminalSafe(std::string_view bytes);

} // namespace tidyro
