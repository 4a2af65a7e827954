#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "CareDomain/CoverageGap.h"
#include "StorageEngine/AITools/AIToolAuditReport.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/AITools/AIToolWalker.h"

namespace tidyro {

/// Adds up what an audit meets, entry by entry: first all of the home, then one store after
/// another.
///
///     AIToolAuditSums sums(report);
///     sums.add(entry, classifier.rate(seen, at, asked), around);
///     sums.finish();
///
/// It fills the report, which outlives it. Used by one thread.
class AIToolAuditSums {
  public:
    explicit AIToolAuditSums(AIToolAuditReport& report);

    /// What comes from here on lies in this store of the layout.
    void beginStore(std::size_t index, const FileURL& url);
    /// The entries come as a walk visits them.
    void add(const AIToolWalkEntry& entry, const AIToolClassifier::Verdict& found,
             const AIToolWalkEntry::Around& around);
    /// Of the home or the store whose entries came last.
    void addGaps(std::vector<CoverageGap> gaps);
    /// Once, when everything came.
    void finish();

  private:
    void addToChildren(const AIToolWalkEntry& entry, bool isEligible);
    void addToFinding(const AIToolWalkEntry& entry, const AIToolClassifier::Verdict& found,
                      const AIToolWalkEntry::Around& around);
    [[nodiscard]] AIToolRuleFinding& findingOf(const AIToolClassifier::Verdict& found,
                                               const AIToolWalkEntry::Around& around);
    void addOversizedFiles();
    [[nodiscard]] AIToolChildRole role(std::span<const std::string> components) const;

    AIToolAuditReport& report_;
    const AIToolLayout& layout_;
    std::string homePrefix_;
    FileURL rootURL_;                                    ///< of the home or the store
    AIToolPathSummary* store_ = nullptr;                 ///< null in the home
    std::vector<AIToolPathSummary>* expanded_ = nullptr; ///< of the child whose entries come
    std::map<const AIToolRecognizer*, AIToolRuleFinding> findings_;
    // By decision and by group; they go to the report's maps at the end.
    std::array<AIToolDecisionTally, allCases<AIToolDecision>().size()> tallies_{};
    std::array<AIToolGroupTotal, allCases<AIToolArtifactGroup>().size()> totals_{};
};

} // namespace tidyro
