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
    FindEntrySet found(storage_.count());
    Entry first = 0;
    const std::uint64_t* with =
        filter_ != nullptr && needle.size() == 1 ? filter_->namesWith(needle.front()) : nullptr;
    if (with != nullptr) {
        first = filter_->covered();
        std::copy_n(with, first / FindBlockFilter::blockSize, found.words().begin());
    }
    forEachPlace(NeedleFinder(std::string(needle)), first,
                 [&found](Entry entry, std::uint32_t) { found.add(entry); });
    return found;
}

FindEntrySet FindNameScan::candidatesForOwn(std::string_view bytes) const {
    const std::string_view run = longestASCIIRun(bytes);
    if (!run.empty()) return holding(searchFolded(run));
    FindEntrySet all(storage_.count());
    for (Entry entry = 0; entry < storage_.count(); ++entry) all.add(entry);
    return all;
}

} // namespace tidyro
