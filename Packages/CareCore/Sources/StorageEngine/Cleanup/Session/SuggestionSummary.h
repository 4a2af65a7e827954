#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "StorageEngine/Suggestions/SmartCleanupReport.h"

namespace tidyro {

/// How much of one kind a search for suggestions found.
struct SuggestionTotals {
    std::uint64_t itemCount = 0;
    std::uint64_t freedByteCount = 0;

    static constexpr auto fields() {
        using Self = SuggestionTotals;
        return fieldList<Self>(field("itemCount", &Self::itemCount),
                               field("freedByteCount", &Self::freedByteCount));
    }
    bool operator==(const SuggestionTotals&) const = default;
};

/// What the last search for suggestions found, kept in a small file so that it can be told at once.
/// It is as old as the search: nothing is ever cleaned by it.
struct SuggestionSummary {
    struct Group {
        std::string ruleID;
        std::string title;
        SuggestionTotals safe;
        SuggestionTotals review;

        static constexpr auto fields() {
            return fieldList<Group>(field("ruleID", &Group::ruleID), field("title", &Group::title),
                                    field("safe", &Group::safe), field("review", &Group::review));
        }
        bool operator==(const Group&) const = default;
    };
    Timestamp completedAt;
    SuggestionTotals safe;
    SuggestionTotals review;
    std::vector<Group> groups; ///< as the report has them

    static constexpr auto fields() {
        using Self = SuggestionSummary;
        return fieldList<Self>(field("completedAt", &Self::completedAt), field("safe", &Self::safe),
                               field("review", &Self::review), field("groups", &Self::groups));
    }
    bool operator==(const SuggestionSummary&) const = default;

    [[nodiscard]] static SuggestionSummary fromReport(const SmartCleanupReport& report);

    /// None when nothing was written yet, or when the file is damaged.
    [[nodiscard]] static std::optional<SuggestionSummary> read(const FileURL& url);
    [[nodiscard]] std::expected<void, SystemError> write(const FileURL& url) const;
};

} // namespace tidyro
