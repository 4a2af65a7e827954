#include "StorageEngine/Cleanup/Session/SuggestionSummary.h"

#include <cstddef>

#include "Base/JSONCoding.h"
#include "Platform/Files/DurableFile.h"

namespace tidyro {

namespace {

constexpr std::size_t maxSummaryBytes = 1UL << 20U;

SuggestionTotals suggestionTotals(const SmartCleanupTotals& found) {
    return {.itemCount = found.itemCount, .freedByteCount = found.freedByteCount};
}

} // namespace

SuggestionSummary SuggestionSummary::fromReport(const SmartCleanupReport& report) {
    SuggestionSummary made{.completedAt = report.completedAt,
                           .safe = suggestionTotals(report.safe()),
                           .review = suggestionTotals(report.review()),
                           .groups = {}};
    for (const SmartCleanupGroup& group : report.groups) {
        made.groups.push_back({.ruleID = group.ruleID,
                               .title = group.title,
                               .safe = suggestionTotals(group.safe),
                               .review = suggestionTotals(group.review)});
    }
    return made;
}

std::optional<SuggestionSummary> SuggestionSummary::read(const FileURL& url) {
    const auto text = platform::readWholeFile(url.path(), maxSummaryBytes);
    if (!text) return std::nullopt;
    auto summary = fromJSONText<SuggestionSummary>(*text);
    return summary ? std::optional(*std::move(summary)) : std::nullopt;
}

std::expected<void, SystemError> SuggestionSummary::write(const FileURL& url) const {
    if (auto made = platform::makePrivateFolder(url.parent().path()); !made) return made;
    return platform::writeDurably(url.path(), jsonText(toJSON(*this)));
}

} // namespace tidyro
