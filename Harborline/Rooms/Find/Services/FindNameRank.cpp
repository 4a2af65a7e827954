#include "Rooms/Find/Services/FindNameRank.h"

#include "Base/PathText.h"

namespace tidyro {

namespace {

bool isUpper(char byte) { return byte >= 'A' && byte <= 'Z'; }
bool isLower(char byte) { return byte >= 'a' && byte <= 'z'; }
/// Bytes of other scripts are taken for letters.
bool isPartOfWord(char byte) {
    return isLower(byte) || isUpper(byte) || (byte >= '0' && byte <= '9') || (byte & 0x80) != 0;
}

bool beginsWord(std::string_view folded, std::string_view name, std::size_t at) {
    if (!isPartOfWord(folded[at - 1])) return true;
    return name.size() == folded.size() && isLower(name[at - 1]) && isUpper(name[at]);
}

} // namespace

FindNameRank nameRank(const FindIndexStorage& storage, std::uint32_t entry,
                      std::string_view needle) {
    const std::string_view folded = storage.foldedName(entry);
    if (folded.starts_with(needle)) {
        if (folded.size() == needle.size()) return FindNameRank::wholeName;
        const std::string_view suffix = path::extensionOf(folded);
        const bool isRest = !suffix.empty() && folded.size() == needle.size() + 1 + suffix.size();
        return isRest ? FindNameRank::withoutSuffix : FindNameRank::beginning;
    }
    const bool isPlain = !storage.is(entry, findflag::notASCII);
    const std::string_view name = isPlain ? storage.name(entry) : std::string_view();
    for (std::size_t at = folded.find(needle, 1); at != std::string_view::npos;
         at = folded.find(needle, at + 1)) {
        if (beginsWord(folded, name, at)) return FindNameRank::word;
    }
    return FindNameRank::anywhere;
}

} // namespace tidyro
