#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text from bytes that may be no text at all. Names of files are such bytes. Nothing here fails,
/// and any thread may call it.
namespace tidyro {

/// Whether no byte is 0x80 or above. Reads all of them, many at once.
[[nodiscard]] bool isASCII(std::string_view bytes);

/// A letter of ASCII in lower case; any other byte as it is.
[[nodiscard]] constexpr char lowerASCII(char byte) noexcept {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

/// One code point in UTF-8; U+FFFD for one that does not exist.
[[nodiscard]] std::string utf8Text(char32_t codePoint);

/// How many bytes the first character of `bytes` takes. An invalid sequence that `repairedUTF8`
/// replaces by one U+FFFD counts as one character. `bytes` are not empty.
[[nodiscard]] std::size_t characterLength(std::string_view bytes);

/// `bytes` as UTF-8, each invalid sequence replaced by one U+FFFD.
[[nodiscard]] std::string repairedUTF8(std::string_view bytes);

/// `bytes` repaired, each code point in its simple lower case, whatever the locale.
[[nodiscard]] std::string lowercased(std::string_view bytes);

/// `bytes` repaired, case-folded and composed. Some disks do not tell cases or compositions apart;
/// two names that such a disk takes for one have the same folded text.
[[nodiscard]] std::string folded(std::string_view bytes);

/// `bytes` as a search compares them: repaired, case-folded, without accents, composed. Accents are
/// marks that change how a letter is read or stressed, in any script. Signs that stand for sounds
/// of their own stay (the vowels of Devanagari or Thai, the voicing of kana), since different words
/// would become one without them. Folding twice is the same as folding once. The time grows in
/// proportion to the length, whatever the bytes.
[[nodiscard]] std::string searchFolded(std::string_view bytes);

/// `bytes` as a person may safely see them on a terminal, which a name must not drive. Control
/// characters, line and paragraph separators and marks that turn the writing direction become
/// visible escapes ("\n", "\x1B", "\u{202E}"). Bytes that are no UTF-8 become "\xFF" escapes.
/// Everything else stays.
[[nodiscard]] std::string terminalSafe(std::string_view bytes);

} // namespace tidyro
