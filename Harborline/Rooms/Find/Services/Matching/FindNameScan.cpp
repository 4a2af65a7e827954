#include "Rooms/Find/Services/Matching/FindNameScan.h"

#include <string>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

std::string_view longestASCIIRun(std::string_view bytes) {
    std::string_view longest;
    while (!bytes.empty()) {
        const auto* end = std::ranges::find_if(bytes, [](char byte) { return (byte & 0x80) != 0; });
        const auto length = static_cast<std::size_t>(end - bytes.begin());
        if (length > longest.size()) longest = bytes.substr(0, length);
        bytes.remove_prefix(std::min(length + 1, bytes.size()));
    }
    return longest;
}

} // namespace

FindEntrySet FindNameScan::holding(std::string_view needle) const {
    const NeedleFinder finder{std::string(needle)};
    FindEntrySet found(storage_.count());
    // Without the filter a text that stands in few names is found sooner in all bytes at once.
    if (filter_ == nullptr && needle.size() > 2) {
        forEachPlace(finder, [&found](Entry entry, std::uint32_t) { found.add(entry); });
        return found;
    }
    FindEntrySet all(storage_.count());
    all.addAll();
    forEachWord(finder, all, [&found](std::size_t word, const NeedleFinder::InNames& names) {
        found.words()[word] = names.holding;
    });
    return found;
}

FindEntrySet FindNameScan::candidatesForOwn(std::string_view bytes) const {
    const std::string_view run = longestASCIIRun(bytes);
    if (!run.empty()) return holding(searchFolded(run));
    FindEntrySet all(storage_.count());
    all.addAll();
    return all;
}

} // namespace tidyro
