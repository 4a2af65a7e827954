#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CoverageGap.h"
#include "CareDomain/EvidenceCodes.h"

namespace tidyro {

/// Items and bytes of one kind. No sum wraps.
struct SmartCleanupTotals {
    std::uint64_t itemCount = 0;
    std::uint64_t byteCount = 0; ///< of the items' contents, as plans count them
    /// The blocks on disk that removing them all gives back. A file with several names counts once,
    /// and only when all of its names are among the candidates. Blocks that a file shares with a
    /// clone count in full.
    std::uint64_t freedByteCount = 0;

    void add(const SmartCleanupTotals& other);
    bool operator==(const SmartCleanupTotals&) const = default;
};

/// What one cleanup rule found.
struct SmartCleanupGroup {
    std::string ruleID;
    std::string title; ///< shown to people
    FileURL rootURL;
    bool isHighYield; ///< the place usually frees much space
    /// Safe ones before those to review, then larger before smaller, then by id. Each is authorised
    /// by the rule.
    std::vector<CleanupCandidate> candidates;
    SmartCleanupTotals safe;
    SmartCleanupTotals review;
    SmartCleanupTotals held; ///< files that stay; nothing of them is freed
    /// Why they stay: how many files by the evidence that protects them.
    std::map<EvidenceCode, std::uint64_t> heldBecause;

    bool operator==(const SmartCleanupGroup&) const = default;
};

/// What a smart cleanup scan found, and what a cleanup is planned from. It is as old as the scan:
/// whoever acts on it looks at the files again.
struct SmartCleanupReport {
    /// Rules with files of theirs on the disk: high-yield places first, then in the registry's
    /// order.
    std::vector<SmartCleanupGroup> groups;
    /// Places that were left out, at most `maxGaps` of them.
    std::vector<CoverageGap> coverageGaps;
    std::uint64_t gapCount = 0; ///< with those that are not listed
    std::uint64_t entriesRead = 0;
    Timestamp startedAt;
    Timestamp completedAt;

    /// Caches are full of links; a list of them all would help nobody.
    static constexpr std::size_t maxGaps = 1'000;

    [[nodiscard]] SmartCleanupTotals safe() const;
    [[nodiscard]] SmartCleanupTotals review() const;
    /// All candidates, in the order of the groups.
    [[nodiscard]] std::vector<CleanupCandidate> candidates() const;
    void addGap(CoverageGap gap);

    bool operator==(const SmartCleanupReport&) const = default;
};

} // namespace tidyro
