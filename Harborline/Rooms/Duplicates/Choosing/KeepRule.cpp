#include "Rooms/Duplicates/Choosing/KeepRule.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

Timestamp dateMade(const DuplicateCopy& copy) { return copy.created.value_or(copy.modified); }

std::ptrdiff_t characterCount(std::string_view path) {
    return std::ranges::count_if(repairedUTF8(path), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; // begins a character
    });
}

constexpr std::array<std::string_view, 10> copyWords{
    "copy",  "kopie", "copie", "copia",        "c\xC3\xB3pia",
    "kopia", "kopi",  "kopya", "\u526F\u672C", "\u30B3\u30D4\u30FC"};
constexpr std::array<std::string_view, 8> copyBeginnings{
    "copy of ",  "kopie von ", "copie de ",  "copia de ",
    "copia di ", "kopia ",     "kopie van ", "c\xC3\xB3pia de "};

/// Takes a number off the end, and the blanks before it.
bool takeNumber(std::string_view& text) {
    constexpr std::size_t maxDigits = 3; // four are a year
    const std::size_t last = text.find_last_not_of("0123456789");
    const std::size_t begin = last == std::string_view::npos ? 0 : last + 1;
    if (begin == text.size() || text.size() - begin > maxDigits) return false;
    text = text.substr(0, begin);
    return true;
}

std::string_view withoutBlanksBehind(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// Whether the lower-case text ends with a word for a copy that something else stands before.
bool endsWithCopyWord(std::string_view text) {
    return std::ranges::any_of(copyWords, [&](std::string_view word) {
        if (!text.ends_with(word) || text.size() == word.size()) return false;
        const char before = text[text.size() - word.size() - 1];
        return std::string_view(" -_(").contains(before);
    });
}

/// The same of a name without its extension.
bool isStemOfCopy(std::string_view stem) {
    if (stem.ends_with(')')) {
        const std::size_t open = stem.rfind('(');
        if (open == std::string_view::npos || open == 0) return false;
        std::string_view inside = stem.substr(open + 1, stem.size() - open - 2);
        if (takeNumber(inside) && inside.empty()) return true;
        return endsWithCopyWord("(" + std::string(withoutBlanksBehind(inside)));
    }
    std::string_view numbered = stem;
    if (takeNumber(numbered) && numbered.ends_with(' ')) stem = withoutBlanksBehind(numbered);
    return endsWithCopyWord(stem);
}

} // namespace

bool isNamedAsCopy(std::string_view fileName) {
    const std::string name = lowercased(fileName);
    const bool begins = std::ranges::any_of(
        copyBeginnings, [&](std::string_view beginning) { return name.starts_with(beginning); });
    if (begins) return true;
    // An extension may have several parts: "x (1).tar.gz".
    for (std::size_t end = name.size(); end != std::string::npos && end > 0;
         end = name.rfind('.', end - 1)) {
        if (isStemOfCopy(std::string_view(name).substr(0, end))) return true;
    }
    return false;
}

bool isBetterToKeep(const DuplicateCopy& copy, const DuplicateCopy& than, KeepRule rule) {
    switch (rule) {
    case KeepRule::oldest:
    case KeepRule::preferredFolder:
        if (dateMade(copy) != dateMade(than)) return dateMade(copy) < dateMade(than);
        break;
    case KeepRule::newest:
        if (copy.modified != than.modified) return copy.modified > than.modified;
        break;
    case KeepRule::shortestPath: {
        const auto count = characterCount(copy.path);
        const auto other = characterCount(than.path);
        if (count != other) return count < other;
        break;
    }
    }
    return copy.path < than.path;
}

} // namespace tidyro
