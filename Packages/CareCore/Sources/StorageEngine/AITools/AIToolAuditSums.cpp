#include "StorageEngine/AITools/AIToolAuditSums.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

#include "Base/PathText.h"
#include "StorageEngine/Rules/ReviewRequiredScope.h"

namespace tidyro {

namespace {

using Components = std::span<const std::string>;

void sortBySize(std::vector<AIToolPathSummary>& summaries) {
    std::ranges::sort(summaries, [](const AIToolPathSummary& a, const AIToolPathSummary& b) {
        return std::tuple(b.logicalByteCount, std::string_view(a.relativePath)) <
               std::tuple(a.logicalByteCount, std::string_view(b.relativePath));
    });
}

void addEntry(AIToolPathSummary& to, const AIToolWalkEntry& entry, bool isEligible) {
    if (entry.kind == AIToolWalkEntry::Kind::directory) {
        ++to.directoryCount;
        return;
    }
    ++to.fileCount;
    to.logicalByteCount += entry.byteCount;
    to.allocatedByteCount += entry.allocatedByteCount;
    to.newestModification = std::max(to.newestModification, entry.modificationDate);
    if (isEligible) to.eligibleByteCount += entry.byteCount;
}

} // namespace

AIToolAuditSums::AIToolAuditSums(AIToolAuditReport& report)
    : report_(report),
      layout_(report.home.layout()),
      homePrefix_(loweredHomePrefix(report.home.userHome)),
      rootURL_(report.home.url) {}

void AIToolAuditSums::beginStore(std::size_t index, const FileURL& url) {
    report_.externalStores.push_back(
        {.relativePath = layout_.externalStores[index].relativeToUserHome,
         .role = AIToolChildRole::externalStore,
         .directoryCount = 1});
    store_ = &report_.externalStores.back();
    rootURL_ = url;
}

void AIToolAuditSums::add(const AIToolWalkEntry& entry, const AIToolClassifier::Verdict& found,
                          const AIToolWalkEntry::Around& around) {
    const bool isFolder = entry.kind == AIToolWalkEntry::Kind::directory;
    const std::uint64_t bytes = isFolder ? 0 : entry.byteCount;
    AIToolDecisionTally& tally = tallies_[static_cast<std::size_t>(found.decision)];
    ++tally.count;
    tally.logicalByteCount += bytes;
    AIToolGroupTotal& total = totals_[static_cast<std::size_t>(found.group)];
    if (!isFolder) {
        ++total.fileCount;
        total.logicalByteCount += bytes;
        total.allocatedByteCount += entry.allocatedByteCount;
    }
    const bool isEligible = found.decision == AIToolDecision::eligibleDisposable ||
                            found.decision == AIToolDecision::eligibleForReview;
    addToChildren(entry, isEligible);
    if (found.rule != nullptr) addToFinding(entry, found, around);
}

/// All entries of a child come one after another, the child itself first.
void AIToolAuditSums::addToChildren(const AIToolWalkEntry& entry, bool isEligible) {
    if (store_ != nullptr) return addEntry(*store_, entry, isEligible);
    const Components components = entry.components;
    const bool isLink = entry.kind == AIToolWalkEntry::Kind::symbolicLink;
    if (components.size() == 1) {
        report_.allChildren.push_back(
            {.relativePath = components[0], .role = role(components), .isSymbolicLink = isLink});
    }
    addEntry(report_.allChildren.back(), entry, isEligible);
    if (components.size() == 1) return;
    if (components.size() == 2) {
        expanded_ = &report_.expandedChildren[components[0]];
        expanded_->push_back({.relativePath = path::joined(components[0], components[1]),
                              .role = role(components),
                              .isSymbolicLink = isLink});
    }
    addEntry(expanded_->back(), entry, isEligible);
}

/// Of a child, or of a child's child.
AIToolChildRole AIToolAuditSums::role(Components components) const {
    using enum AIToolChildRole;
    std::string below = components[0];
    if (components.size() > 1) below = path::joined(below, components[1]);
    if (layout_.rootOf(components) != nullptr) return candidateRoot;
    const bool isOnTheWay = std::ranges::any_of(layout_.candidateRoots, [&](const auto& root) {
        return root.relativePath.starts_with(path::joined(below, ""));
    });
    switch (AIToolClassifier::decisionOfTopLevel(layout_, components[0])) {
    case AIToolDecision::namedProtectedState:
        return isOnTheWay && components.size() > 1 ? candidateRoot : protectedState;
    case AIToolDecision::conversationOrHistory: return conversation;
    default: return isOnTheWay ? candidateRoot : unlisted;
    }
}

AIToolRuleFinding& AIToolAuditSums::findingOf(const AIToolClassifier::Verdict& found,
                                              const AIToolWalkEntry::Around& around) {
    const auto known = findings_.find(found.rule);
    if (known != findings_.end()) return known->second;
    const AIToolRecognizer& rule = *found.rule;
    AIToolRuleFinding finding{
        .ruleID = rule.ruleID,
        .title = rule.title,
        .group = rule.group,
        .category = rule.category,
        .consequence = rule.consequence,
        .locationRootURL = rootURL_,
        .candidateRootURL =
            found.root != nullptr ? rootURL_.appendingFolder(found.root->relativePath) : rootURL_,
        .volumeIdentifier = around.volumeIdentifier,
        .hasReviewOnlyItems = rule.group == AIToolArtifactGroup::generatedWork};
    return findings_.emplace(&rule, std::move(finding)).first->second;
}

void AIToolAuditSums::addToFinding(const AIToolWalkEntry& entry,
                                   const AIToolClassifier::Verdict& found,
                                   const AIToolWalkEntry::Around& around) {
    if (entry.kind != AIToolWalkEntry::Kind::regularFile) return;
    switch (found.decision) {
    case AIToolDecision::tooRecent: {
        AIToolRuleFinding& finding = findingOf(found, around);
        ++finding.keptRecentCount;
        finding.keptRecentByteCount += entry.byteCount;
        return;
    }
    case AIToolDecision::inUseByProcess: {
        AIToolRuleFinding& finding = findingOf(found, around);
        ++finding.keptActiveCount;
        finding.keptActiveByteCount += entry.byteCount;
        return;
    }
    case AIToolDecision::eligibleDisposable:
    case AIToolDecision::eligibleForReview: break;
    default: return;
    }
    if (!entry.modificationDate) return; // the classifier holds it
    AIToolRuleFinding& finding = findingOf(found, around);
    const std::string& path = entry.url.path();
    finding.artifacts.push_back({.relativePath = std::string(path::below(path, rootURL_.path())),
                                 .byteCount = entry.byteCount,
                                 .allocatedByteCount = entry.allocatedByteCount,
                                 .deviceID = entry.deviceID,
                                 .inode = entry.inode,
                                 .modificationDate = *entry.modificationDate,
                                 .creationDate = entry.creationDate,
                                 .isInProjectRepository = around.folders.isInProjectRepository});
    finding.eligibleByteCount += entry.byteCount;
    finding.eligibleAllocatedByteCount += entry.allocatedByteCount;
    finding.hasReviewOnlyItems =
        finding.hasReviewOnlyItems ||
        ReviewRequiredScope::needsReview(path, finding.category, homePrefix_);
}

/// Counts what was not measured for the child or store that it lies in.
void AIToolAuditSums::addGaps(std::vector<CoverageGap> gaps) {
    if (store_ != nullptr) {
        store_->inaccessibleCount += gaps.size();
    } else {
        std::map<std::string_view, AIToolPathSummary*> known;
        for (AIToolPathSummary& child : report_.allChildren) {
            known.emplace(child.relativePath, &child);
        }
        for (auto& [name, inside] : report_.expandedChildren) {
            for (AIToolPathSummary& child : inside) known.emplace(child.relativePath, &child);
        }
        const auto count = [&](std::string_view child) {
            if (const auto found = known.find(child); found != known.end()) {
                ++found->second->inaccessibleCount;
            }
        };
        for (const CoverageGap& gap : gaps) {
            const std::string_view below = path::below(gap.url.path(), report_.home.url.path());
            const std::size_t first = below.find('/');
            count(below.substr(0, first));
            if (first != below.npos) count(below.substr(0, below.find('/', first + 1)));
        }
    }
    report_.gaps.insert(report_.gaps.end(), std::make_move_iterator(gaps.begin()),
                        std::make_move_iterator(gaps.end()));
}

void AIToolAuditSums::addOversizedFiles() {
    for (const AIToolPathSummary& child : report_.allChildren) {
        const bool isFile = child.directoryCount == 0 && !child.isSymbolicLink;
        if (!isFile || child.logicalByteCount < AIToolAuditReport::minOversizedBytes) continue;
        if (const AIToolGrowingFile* known = layout_.growingFile(child.relativePath)) {
            report_.oversizedFiles.push_back({.relativePath = child.relativePath,
                                              .byteCount = child.logicalByteCount,
                                              .remedy = known->remedy});
        }
    }
}

void AIToolAuditSums::finish() {
    for (const AIToolPathSummary& child : report_.allChildren) {
        report_.totalLogicalByteCount += child.logicalByteCount;
        report_.totalAllocatedByteCount += child.allocatedByteCount;
        report_.fileCount += child.fileCount;
        report_.directoryCount += child.directoryCount;
    }
    for (const AIToolDecision decision : allCases<AIToolDecision>()) {
        const AIToolDecisionTally& tally = tallies_[static_cast<std::size_t>(decision)];
        if (tally.count > 0) report_.decisionTallies.emplace(decision, tally);
    }
    for (const AIToolArtifactGroup group : allCases<AIToolArtifactGroup>()) {
        const AIToolGroupTotal& total = totals_[static_cast<std::size_t>(group)];
        if (total.fileCount > 0) report_.groupTotals.emplace(group, total);
    }
    sortBySize(report_.allChildren);
    addOversizedFiles();
    for (auto& [name, inside] : report_.expandedChildren) sortBySize(inside);
    const auto shown = std::min(report_.allChildren.size(), AIToolAuditReport::maxLargestChildren);
    report_.largestChildren.assign(report_.allChildren.begin(),
                                   report_.allChildren.begin() +
                                       static_cast<std::ptrdiff_t>(shown));
    const auto take = [&](std::span<const AIToolRecognizer> rules) {
        for (const AIToolRecognizer& rule : rules) {
            const auto found = findings_.find(&rule);
            if (found == findings_.end()) continue;
            std::ranges::sort(found->second.artifacts, {}, &AIToolArtifact::relativePath);
            report_.ruleFindings.push_back(std::move(found->second));
        }
    };
    for (const AIToolCandidateRoot& root : layout_.candidateRoots) take(root.recognizers);
    for (const AIToolExternalStore& store : layout_.externalStores) take(store.recognizers);
}

} // namespace tidyro
