#include "Rooms/Find/Services/Listing/FindHitListing.h"

#include <algorithm>

#include <fmt/format.h>

#include "Base/Base64.h"
#include "Base/Calendar.h"
#include "Base/JSON.h"
#include "Base/Timestamp.h"
#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Search/BestHits.h"

namespace tidyro {

namespace {

std::string dateText(std::uint32_t modified) {
    const DateComponents date = Calendar::utc().components(Timestamp::since1970(modified, 0));
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", date.year, date.month, date.day,
                       date.hour, date.minute, date.second);
}

std::string jsonLine(const FindIndexStorage& index, FindIndexStorage::Entry hit) {
    const std::string path = index.path(hit);
    const bool isLink = index.is(hit, findflag::symlink);
    const std::string text = repairedUTF8(path);
    const std::string bytes =
        text == path ? "" : fmt::format(R"("pathBytes":"{}",)", base64Text(path));
    return fmt::format(R"({{"path":{},{}"kind":"{}","size":{},"date":"{}"}})"
                       "\n",
                       jsonText(JSON(text)), bytes, isLink ? "link" : rawValue(index.category(hit)),
                       index.size(hit), dateText(index.mtime[hit]));
}

} // namespace

void FindHitListing::sort(const FindIndexStorage& index, std::vector<Entry>& hits,
                          FindHitOrder order) {
    const auto sortBy = [&](const auto& compare) {
        std::ranges::sort(hits, [&](Entry a, Entry b) {
            const auto difference = compare(a, b);
            return difference == 0 ? isBeforeByPath(index, a, b) : difference < 0;
        });
    };
    switch (order) {
    case FindHitOrder::best: break;
    case FindHitOrder::name:
        sortBy([&](Entry a, Entry b) { return index.foldedName(a) <=> index.foldedName(b); });
        break;
    case FindHitOrder::path:
        std::ranges::sort(hits, [&](Entry a, Entry b) { return isBeforeByPath(index, a, b); });
        break;
    case FindHitOrder::size:
        sortBy([&](Entry a, Entry b) { return index.size(b) <=> index.size(a); });
        break;
    case FindHitOrder::date:
        sortBy([&](Entry a, Entry b) { return index.mtime[b] <=> index.mtime[a]; });
        break;
    }
}

std::string FindHitListing::text(const FindIndexStorage& index, Entry hit, FindHitForm form) {
    switch (form) {
    case FindHitForm::line: return index.path(hit) + '\n';
    case FindHitForm::zeroEnded: return index.path(hit) + '\0';
    case FindHitForm::json: return jsonLine(index, hit);
    }
    return {};
}

} // namespace tidyro
