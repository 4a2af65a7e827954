#include "Rooms/Find/Services/FindWordBoundaries.h"

#include <algorithm>
#include <array>
#include <cstdint>
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

Class classOf(utf8proc_int32_t character, Class before) {
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
    case UTF8PROC_CATEGORY_ME: return before;
    default: return Class::separator;
    }
}

bool partsWords(Class before, Class after) {
    return before == Class::separator || after == Class::separator ||
           (before == Class::small && after == Class::capital) ||
           (before == Class::digit) != (after == Class::digit);
}

/// The bytes that one character contributes to a folded text.
std::size_t foldedLength(utf8proc_int32_t character) {
    constexpr utf8proc_int32_t firstSyllable = 0xAC00;
    constexpr utf8proc_int32_t lastSyllable = 0xD7A3;
    if (character < 0x80) return 1;
    if (character >= firstSyllable && character <= lastSyllable) return 3; // composed again
    // Vowels and ends of syllables that stand alone are composed with what is before them.
    if ((character >= 0x1161 && character <= 0x1175) ||
        (character >= 0x11A8 && character <= 0x11C2)) {
        return 0;
    }
    std::array<utf8proc_int32_t, 32> parts{};
    int lastClass = 0;
    const auto count = utf8proc_decompose_char(
        character, parts.data(), static_cast<utf8proc_ssize_t>(parts.size()),
        // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): its options are bits
        static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD |
                                       UTF8PROC_STRIPMARK),
        &lastClass);
    std::size_t length = 0;
    for (utf8proc_ssize_t i = 0; i < count && i < utf8proc_ssize_t{32}; ++i) {
        const auto part = static_cast<std::uint32_t>(parts[static_cast<std::size_t>(i)]);
        length += part < 0x80 ? 1U : part < 0x800 ? 2U : part < 0x10000 ? 3U : 4U;
    }
    return length;
}

std::vector<std::size_t> boundaries(std::string_view text, bool folds) {
    std::vector<std::size_t> offsets{0};
    std::size_t offset = 0;
    Class before = Class::separator;
    while (!text.empty()) {
        utf8proc_int32_t character = -1;
        const auto read = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                           static_cast<utf8proc_ssize_t>(text.size()), &character);
        const std::size_t length = read > 0 ? static_cast<std::size_t>(read) : 1;
        const Class after = read > 0 ? classOf(character, before) : Class::separator;
        if (partsWords(before, after)) offsets.push_back(offset);
        offset += folds ? foldedLength(character) : length;
        before = after;
        text.remove_prefix(length);
    }
    offsets.push_back(offset);
    return offsets;
}

} // namespace

FindWordBoundaries::FindWordBoundaries(const FindSubject& subject, bool inOwn)
    : own_(subject.own), isASCII_(subject.isASCII) {
    if (isASCII_) return;
    offsets_ = inOwn ? boundaries(subject.own, false) : boundaries(repairedUTF8(subject.own), true);
}

bool FindWordBoundaries::isAt(std::size_t offset) const {
    if (!isASCII_) return std::ranges::binary_search(offsets_, offset);
    if (offset == 0 || offset >= own_.size()) return true;
    return partsWords(classOf(own_[offset - 1]), classOf(own_[offset]));
}

} // namespace tidyro
