#include "Rooms/Find/Services/Matching/FindWordBoundaries.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include <utf8proc.h>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

enum class Class : std::uint8_t { separator, small, capital, letter, digit };

Class classOf(char byte) {
    if (byte >= 'a' && byte <= 'z') return Class::small;
    if (byte >= 'A' && byte <= 'Z') return Class::capital;
    return byte >= '0' && byte <= '9' ? Class::digit : Class::separator;
}

/// None for a mark, which is of the letter before it.
std::optional<Class> classOf(utf8proc_int32_t character) {
    switch (utf8proc_category(character)) {
    case UTF8PROC_CATEGORY_LL: return Class::small;
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LT: return Class::capital;
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO: return Class::letter;
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO: return Class::digit;
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME: return std::nullopt;
    default: return Class::separator;
    }
}

bool isBetweenWords(Class before, Class after) {
    return before == Class::separator || after == Class::separator ||
           (before == Class::small && after == Class::capital) ||
           (before == Class::digit) != (after == Class::digit);
}

enum class Bytes : std::uint8_t { own, folded };

/// Where the words of text begin and end, in its own bytes or in those that are left of it when
/// it is folded. What is folded together never reaches over the end of a word.
std::vector<std::size_t> boundaries(std::string_view text, Bytes counted) {
    std::vector<std::size_t> offsets{0};
    Class before = Class::separator;
    std::size_t start = 0; // of the word
    const auto endWord = [&](std::size_t end) {
        const std::string_view word = text.substr(start, end - start);
        offsets.push_back(offsets.back() +
                          (counted == Bytes::folded ? searchFolded(word).size() : word.size()));
        start = end;
    };
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = text.substr(at);
        utf8proc_int32_t character = -1;
        const auto read = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(rest.data()),
                                           static_cast<utf8proc_ssize_t>(rest.size()), &character);
        const auto after = read > 0 ? classOf(character) : Class::separator;
        if (after && at > 0 && isBetweenWords(before, *after)) endWord(at);
        before = after.value_or(before);
        at += read > 0 ? static_cast<std::size_t>(read) : 1;
    }
    endWord(text.size());
    return offsets;
}

} // namespace

FindWordBoundaries::FindWordBoundaries(const FindSubject& subject, bool isCaseSensitive)
    : own_(subject.own), isASCII_(subject.isASCII) {
    if (isASCII_) return;
    offsets_ = isCaseSensitive ? boundaries(subject.own, Bytes::own)
                               : boundaries(repairedUTF8(subject.own), Bytes::folded);
}

bool FindWordBoundaries::isAt(std::size_t offset) const {
    if (!isASCII_) return std::ranges::binary_search(offsets_, offset);
    if (offset == 0 || offset >= own_.size()) return true;
    return isBetweenWords(classOf(own_[offset - 1]), classOf(own_[offset]));
}

} // namespace tidyro
