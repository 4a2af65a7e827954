#include "Rooms/Duplicates/Choosing/KeepRule.h"

#include <algorithm>
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

} // namespace

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
