#include "Base/UnicodeText.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include <fmt/format.h>
#include <utf8proc.h>

namespace tidyro {

namespace {

struct CodePoint {
    char32_t codePoint;
    std::size_t length; ///< bytes taken, at least 1
    bool isValid;
};

CodePoint decodeNext(std::string_view bytes) {
    utf8proc_int32_t codePoint = -1;
    const auto length = utf8proc_iterate(
        // utf8proc names bytes by an unsigned type of its own.
        reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
        static_cast<utf8proc_ssize_t>(bytes.size()), &codePoint);
    if (length < 1 || codePoint < 0) return {.codePoint = 0xFFFD, .length = 1, .isValid = false};
    return {.codePoint = static_cast<char32_t>(codePoint),
            .length = static_cast<std::size_t>(length),
            .isValid = true};
}

/// A lead byte counts as one invalid sequence together with those of its continuation bytes that
/// are there.
std::size_t invalidLength(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    const std::size_t wanted = lead >= 0xF0 && lead < 0xF5 ? 4
                               : lead >= 0xE0              ? 3
                               : lead >= 0xC2              ? 2
                                                           : 1;
    if (lead < 0xC2 || lead > 0xF4) return 1;
    const auto second = bytes.size() > 1 ? static_cast<unsigned char>(bytes[1]) : 0U;
    const bool secondFits = (lead != 0xE0 || second >= 0xA0) && (lead != 0xED || second < 0xA0) &&
                            (lead != 0xF0 || second >= 0x90) && (lead != 0xF4 || second < 0x90);
    if (!secondFits) return 1;
    std::size_t length = 1;
    while (length < wanted && length < bytes.size() &&
           (static_cast<unsigned char>(bytes[length]) & 0xC0) == 0x80) {
        ++length;
    }
    return length;
}

bool mayDriveATerminal(char32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0) || codePoint == 0x2028 ||
           codePoint == 0x2029 || codePoint == 0x200E || codePoint == 0x200F ||
           codePoint == 0x061C || (codePoint >= 0x202A && codePoint <= 0x202E) ||
           (codePoint >= 0x2066 && codePoint <= 0x2069);
}

std::string visibleEscape(char32_t codePoint) {
    switch (codePoint) {
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default:
        return codePoint < 0x100 ? fmt::format("\\x{:02X}", static_cast<unsigned>(codePoint))
                                 : fmt::format("\\u{{{:04X}}}", static_cast<unsigned>(codePoint));
    }
}

} // namespace

bool isASCII(std::string_view bytes) {
    char all = 0; // no early end: to ask after each byte costs more than to read the rest
    for (const char byte : bytes) all = static_cast<char>(all | byte);
    return (all & 0x80) == 0;
}

std::string utf8Text(char32_t codePoint) {
    const auto number = static_cast<utf8proc_int32_t>(codePoint);
    if (!utf8proc_codepoint_valid(number)) return "\xEF\xBF\xBD";
    std::string text(4, '\0');
    const auto length =
        utf8proc_encode_char(number, reinterpret_cast<utf8proc_uint8_t*>(text.data()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::size_t characterLength(std::string_view bytes) {
    const CodePoint next = decodeNext(bytes);
    return next.isValid ? next.length : invalidLength(bytes);
}

std::string repairedUTF8(std::string_view bytes) {
    if (isASCII(bytes)) return std::string(bytes);
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const CodePoint next = decodeNext(bytes);
        const std::size_t length = next.isValid ? next.length : invalidLength(bytes);
        text += next.isValid ? bytes.substr(0, length) : "\xEF\xBF\xBD";
        bytes.remove_prefix(length);
    }
    return text;
}

std::string lowercased(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    if (isASCII(bytes)) {
        for (const char byte : bytes) text += lowerASCII(byte);
        return text;
    }
    const std::string repaired = repairedUTF8(bytes);
    std::string_view rest = repaired;
    while (!rest.empty()) {
        const CodePoint next = decodeNext(rest);
        text += utf8Text(
            static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(next.codePoint))));
        rest.remove_prefix(next.length);
    }
    return text;
}

std::string folded(std::string_view bytes) {
    if (isASCII(bytes)) return lowercased(bytes);
    const std::string repaired = repairedUTF8(bytes);
    utf8proc_uint8_t* made = nullptr;
    const auto length = utf8proc_map(
        reinterpret_cast<const utf8proc_uint8_t*>(repaired.data()),
        static_cast<utf8proc_ssize_t>(repaired.size()), &made,
        // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): its options are bits
        static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
    if (length < 0) return lowercased(repaired);
    std::string text(reinterpret_cast<const char*>(made), static_cast<std::size_t>(length));
    std::free(made); // NOLINT: utf8proc allocates as C does
    return text;
}

namespace {

/// Marks are told apart by where they attach to a letter. Those that may sit above, below or
/// through any letter are accents. Nuktas, kana voicing, viramas and the vowel signs of Indic and
/// South-East Asian scripts have combining classes of their own or none.
bool isAccent(utf8proc_int32_t codePoint) {
    if (codePoint < 0x300) return false;
    const utf8proc_property_t& properties = *utf8proc_get_property(codePoint);
    if (properties.category == UTF8PROC_CATEGORY_ME) return true;
    if (properties.category != UTF8PROC_CATEGORY_MN) return false;
    const int attached = properties.combining_class;
    if (attached == 0) return properties.ignorable; // variation selectors, joiners of graphemes
    if (attached == 1) return true;                 // drawn over the letter
    return (attached >= 10 && attached < 84) || attached >= 200;
}

void appendSearchFolded(std::string& text, std::string_view piece) {
    constexpr auto bits =
        UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD; // composing implies taking apart
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): its options are bits
    constexpr auto options = static_cast<utf8proc_option_t>(bits);
    std::array<utf8proc_int32_t, 1'024> onStack; // NOLINT: filled below
    std::vector<utf8proc_int32_t> onHeap;
    utf8proc_int32_t* points = onStack.data();
    const auto takeApart = [&](std::size_t room) {
        return utf8proc_decompose(reinterpret_cast<const utf8proc_uint8_t*>(piece.data()),
                                  static_cast<utf8proc_ssize_t>(piece.size()), points,
                                  static_cast<utf8proc_ssize_t>(room), options);
    };
    // One place stays free: the way back into bytes ends them with a zero.
    utf8proc_ssize_t count = takeApart(onStack.size() - 1);
    if (count >= static_cast<utf8proc_ssize_t>(onStack.size())) {
        onHeap.resize(static_cast<std::size_t>(count) + 1);
        points = onHeap.data();
        count = takeApart(onHeap.size() - 1);
    }
    if (count < 0) {
        text += piece;
        return;
    }
    const auto* end = std::remove_if(points, points + count, isAccent);
    const utf8proc_ssize_t length = utf8proc_reencode(points, end - points, options);
    if (length > 0) {
        text.append(reinterpret_cast<const char*>(points), static_cast<std::size_t>(length));
    }
}

} // namespace

std::string searchFolded(std::string_view bytes) {
    if (isASCII(bytes)) return lowercased(bytes);
    // To bring marks into order takes the square of their number. So text that is far longer than
    // any name goes piece by piece.
    constexpr std::size_t maxPiece = 4'096;
    const std::string repaired = repairedUTF8(bytes);
    std::string_view rest = repaired;
    std::string text;
    text.reserve(repaired.size());
    while (!rest.empty()) {
        std::size_t length = std::min(rest.size(), maxPiece);
        while (length < rest.size() && (static_cast<unsigned char>(rest[length]) & 0xC0) == 0x80) {
            --length;
        }
        appendSearchFolded(text, rest.substr(0, length));
        rest.remove_prefix(length);
    }
    return text;
}

std::string terminalSafe(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const CodePoint next = decodeNext(bytes);
        if (!next.isValid) {
            text += fmt::format("\\x{:02X}", static_cast<unsigned char>(bytes.front()));
        } else if (mayDriveATerminal(next.codePoint)) {
            text += visibleEscape(next.codePoint);
        } else {
            text += bytes.substr(0, next.length);
        }
        bytes.remove_prefix(next.length);
    }
    return text;
}

} // namespace tidyro
