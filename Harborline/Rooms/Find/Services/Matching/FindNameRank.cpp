#include "Rooms/Find/Services/Matching/FindNameRank.h"

#include "Base/PathText.h"

namespace tidyro {

namespace {

bool isUpper(char byte) { return byte >= 'A' && byte <= 'Z'; }
bool isLower(char byte) { return byte >= 'a' && byte <= 'z'; }
/// Bytes of other scripts are taken for letters.
bool isPartOfWord(char byte) {
    return isLower(byte) || isUpper(byte) || (byte >= '0' && byte <= '9') || (byte & 0x80) != 0;
}

} // namespace

bool isWordStart(const FindIndexStorage& storage, std::uint32_t entry, std::size_t at) {
    const char* folded = storage.foldedNames.data() + storage.foldedStart[entry];
    if (!isPartOfWord(folded[at - 1])) return true;
    if (!isLower(folded[at - 1]) || !isLower(folded[at])) return false;
    if (storage.is(entry, findflag::notASCII)) return false;
    const std::string_view name = storage.name(entry);
    return isLower(name[at - 1]) && isUpper(name[at]);
}

FindNameRank nameRank(const FindIndexStorage& storage, std::uint32_t entry,
                      std::string_view needle) {
    std::string_view folded = storage.foldedName(entry);
    if (folded.starts_with('.') && !needle.starts_with('.')) folded.remove_prefix(1);
    if (folded.starts_with(needle)) {
        if (folded.size() == needle.size()) return FindNameRank::wholeName;
        const std::string_view suffix = path::extensionOf(folded);
        const bool isRest = !suffix.empty() && folded.size() == needle.size() + 1 + suffix.size();
        return isRest ? FindNameRank::withoutSuffix : FindNameRank::beginning;
    }
    const std::size_t dot = storage.foldedName(entry).size() - folded.size();
    for (std::size_t at = folded.find(needle, 1); at != std::string_view::npos;
         at = folded.find(needle, at + 1)) {
        if (isWordStart(storage, entry, at + dot)) return FindNameRank::word;
    }
    return FindNameRank::anywhere;
}

} // namespace tidyro
