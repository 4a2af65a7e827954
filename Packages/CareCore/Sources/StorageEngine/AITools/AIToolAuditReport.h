#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/SharedText.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CleanupCategory.h"
#include "CareDomain/CoverageGap.h"
#include "StorageEngine/AITools/AIToolDecision.h"
#include "StorageEngine/AITools/AIToolHome.h"

namespace tidyro {

/// What a child of a home is, as far as its name tells.
enum class AIToolChildRole : std::uint8_t {
    protectedState,
    conversation,
    candidateRoot, ///< or a folder on the way to one
    externalStore,
    unlisted, ///< the layout does not know it; it is measured only
};

constexpr RawValueTable<AIToolChildRole, 5> rawValues(RawValueTag<AIToolChildRole>) {
    using enum AIToolChildRole;
    return {{{{protectedState, "protectedState"},
              {conversation, "conversation"},
              {candidateRoot, "candidateRoot"},
              {externalStore, "externalStore"},
              {unlisted, "unlisted"}}}};
}

/// What one child of a home, or one store, holds. A file counts itself.
struct AIToolPathSummary {
    /// Below the home; for a store below the user's home.
    std::string relativePath;
    AIToolChildRole role;
    bool isSymbolicLink = false;
    std::uint64_t logicalByteCount = 0;
    std::uint64_t allocatedByteCount = 0;
    std::uint64_t fileCount = 0;
    std::uint64_t directoryCount = 0; ///< with itself
    std::optional<Timestamp> newestModification = std::nullopt;
    std::uint64_t eligibleByteCount = 0; ///< of files that may go, also of those to review
    std::uint64_t inaccessibleCount = 0; ///< folders that could not be opened, and other gaps

    static constexpr auto fields() {
        using Self = AIToolPathSummary;
        return fieldList<Self>(
            field("relativePath", &Self::relativePath), field("role", &Self::role),
            field("isSymbolicLink", &Self::isSymbolicLink),
            field("logicalByteCount", &Self::logicalByteCount),
            field("allocatedByteCount", &Self::allocatedByteCount),
            field("fileCount", &Self::fileCount), field("directoryCount", &Self::directoryCount),
            field("newestModification", &Self::newestModification),
            field("eligibleByteCount", &Self::eligibleByteCount),
            field("inaccessibleCount", &Self::inaccessibleCount));
    }
    bool operator==(const AIToolPathSummary&) const = default;
};

/// One file that may go.
struct AIToolArtifact {
    std::string relativePath; ///< below its finding's location
    std::uint64_t byteCount;
    std::uint64_t allocatedByteCount;
    std::uint64_t deviceID;
    std::uint64_t inode;
    Timestamp modificationDate;
    std::optional<Timestamp> creationDate = std::nullopt;
    /// It belongs to a repository that the tool made itself; only then may it go all the same.
    bool isInProjectRepository = false;

    bool operator==(const AIToolArtifact&) const = default;
};

/// What one rule found in one home.
struct AIToolRuleFinding {
    std::string ruleID;
    std::string title;
    AIToolArtifactGroup group;
    CleanupCategory category;
    std::string consequence;
    FileURL locationRootURL;  ///< the home, or the store that the rule belongs to
    FileURL candidateRootURL; ///< the root inside the home; the store itself for its rules
    /// One text for all; none when the volume is not known, and then nothing is eligible.
    std::optional<SharedText> volumeIdentifier = std::nullopt;
    std::vector<AIToolArtifact> artifacts = {}; ///< sorted by path, byte by byte
    std::uint64_t eligibleByteCount = 0;
    std::uint64_t eligibleAllocatedByteCount = 0;
    std::uint64_t keptRecentCount = 0;
    std::uint64_t keptRecentByteCount = 0;
    std::uint64_t keptActiveCount = 0;
    std::uint64_t keptActiveByteCount = 0;
    /// The rule finds generated work, or the place of an item asks for a person's look.
    bool hasReviewOnlyItems = false;

    [[nodiscard]] FileURL url(const AIToolArtifact& of) const;
    /// By what a selection names the item. Different for any two items of one report; UTF-8.
    [[nodiscard]] std::string key(const AIToolArtifact& of) const;

    bool operator==(const AIToolRuleFinding&) const = default;
};

/// A file that is protected and large, with what a person can have the tool do about it.
struct AIToolOversizedFile {
    std::string relativePath; ///< below the home
    std::uint64_t byteCount;
    std::string remedy;

    bool operator==(const AIToolOversizedFile&) const = default;
};

struct AIToolGroupTotal {
    std::uint64_t fileCount = 0;
    std::uint64_t logicalByteCount = 0;
    std::uint64_t allocatedByteCount = 0;

    bool operator==(const AIToolGroupTotal&) const = default;
};

struct AIToolDecisionTally {
    std::uint64_t count = 0; ///< entries of all kinds
    std::uint64_t logicalByteCount = 0;

    bool operator==(const AIToolDecisionTally&) const = default;
};

/// What an audit found in one home and its stores. It is true of the moment of the audit; whoever
/// acts on it asks again.
struct AIToolAuditReport {
    static constexpr std::size_t maxLargestChildren = 10;
    /// Smaller ones of the layout's growing files are not worth a word.
    static constexpr std::uint64_t minOversizedBytes = 100'000'000;

    AIToolHome home;
    std::string layoutVersion;
    double minimumAge; ///< seconds
    Timestamp startedAt;
    Timestamp completedAt;
    std::uint64_t totalLogicalByteCount = 0; ///< of the home, without its stores
    std::uint64_t totalAllocatedByteCount = 0;
    std::uint64_t fileCount = 0;
    std::uint64_t directoryCount = 0;
    std::vector<AIToolPathSummary> largestChildren = {}; ///< by logical bytes, largest first
    std::vector<AIToolPathSummary> allChildren = {};     ///< in the same order
    /// Of the home's children that are folders: their own children, largest first.
    std::map<std::string, std::vector<AIToolPathSummary>> expandedChildren = {};
    std::vector<AIToolPathSummary> externalStores = {}; ///< in the layout's order
    std::map<AIToolArtifactGroup, AIToolGroupTotal> groupTotals = {};
    std::map<AIToolDecision, AIToolDecisionTally> decisionTallies = {};
    std::vector<AIToolRuleFinding> ruleFindings = {};     ///< in the layout's order; none is empty
    std::vector<AIToolOversizedFile> oversizedFiles = {}; ///< in the order of `allChildren`
    std::vector<CoverageGap> gaps = {};                   ///< what was not measured
    bool isTruncated = false; ///< more entries than a walk visits; what was seen stands here
    std::size_t unreadableProcessCount = 0;
    std::uint32_t ownerUserID = 0; ///< of every artifact: the person for whom it was audited

    [[nodiscard]] std::uint64_t totalIncludingStoresByteCount() const;
    [[nodiscard]] std::uint64_t eligibleByteCount() const;
    [[nodiscard]] std::uint64_t eligibleDisposableByteCount() const;
    [[nodiscard]] std::uint64_t keptForRecentUseByteCount() const;
    [[nodiscard]] std::uint64_t keptForActiveUseByteCount() const;
    /// The candidate that the classifier made of the item when it was audited.
    [[nodiscard]] CleanupCandidate candidate(const AIToolArtifact& forArtifact,
                                             const AIToolRuleFinding& in) const;
};

} // namespace tidyro
