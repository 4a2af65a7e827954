// Making manifests from what audits found and persons ticked.
#include "StorageEngine/AITools/Cleanup/AIToolCleanupManifest.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Base/PathText.h"
#include "Base/RoomText.h"
#include "Base/Saturating.h"
#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using Tally = AIToolCleanupLeftOut::Tally;

void addTo(Tally& tally, const AIToolArtifact& item) {
    ++tally.count;
    tally.byteCount = saturatingAdd(tally.byteCount, item.byteCount);
}

std::string countedItems(std::uint64_t count, const LocaleText& locale) {
    return RoomText::counted(count, "item", "items", locale);
}

/// The folders in which nothing may be taken, as they are written and where they really lie.
class Fences {
  public:
    explicit Fences(std::span<const FileURL> roots) {
        for (const FileURL& root : roots) {
            written_.push_back(root.path());
            real_.push_back(FolderResolver::resolved(root.path()).value_or(root.path()));
        }
    }

    [[nodiscard]] bool hold(const std::string& path) {
        if (written_.empty()) return false;
        const std::string_view folder = path::parent(path);
        if (folder != folder_) {
            folder_ = folder;
            realFolder_ = FolderResolver::resolved(folder_).value_or(folder_);
        }
        const std::string real = path::joined(realFolder_, path::lastComponent(path));
        const auto isIn = [](const std::string& item, const std::vector<std::string>& roots) {
            return std::ranges::any_of(
                roots, [&](const std::string& root) { return path::isInsideOrEqual(item, root); });
        };
        return isIn(path, written_) || isIn(real, real_);
    }

  private:
    std::vector<std::string> written_;
    std::vector<std::string> real_;
    std::string folder_; ///< the last one that was asked for
    std::string realFolder_;
};

/// What becomes of one item that is ticked.
struct JudgedItem {
    CleanupCandidate candidate;
    Tally AIToolCleanupLeftOut::* leftOut =
        nullptr; ///< why it is left out; null for another reason
    std::optional<AIToolVeto::Reason> vetoed = std::nullopt;
};

/// Takes the items of one report.
class Taking {
  public:
    Taking(const AIToolAuditReport& report, const AIToolCleanupSelection& selection,
           const AIToolCleanupManifest::Making& making)
        : report_(report), selection_(selection), fences_(making.fenceRoots), veto_(making.veto) {
        disposable_.mode = selection.disposableMode;
        generated_.mode = selection.generatedWorkMode;
    }

    void takeFrom(const AIToolRuleFinding& finding) {
        const auto rule = report_.home.layout().recognizer(finding.ruleID);
        if (!rule || rule->recognizer->group != finding.group) return;
        const bool isGenerated = finding.group == AIToolArtifactGroup::generatedWork;
        if (!isGenerated && !selection_.disposableRuleIDs.contains(finding.ruleID)) return;
        std::vector<const AIToolArtifact*> wanted;
        wanted.reserve(finding.artifacts.size());
        for (const AIToolArtifact& item : finding.artifacts) {
            if (isWanted(finding, item, isGenerated)) wanted.push_back(&item);
        }
        auto judged = judgeAll(finding, *rule->recognizer, wanted);
        auto& operation = isGenerated ? generated_ : disposable_;
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            std::optional<JudgedItem>& of = judged[i];
            if (!of) continue; // each is judged
            const AIToolArtifact& item = *wanted[i];
            if (of->vetoed) {
                addTo(leftOut_.vetoed[*of->vetoed], item);
            } else if (of->leftOut != nullptr) {
                addTo(leftOut_.*of->leftOut, item);
            } else {
                operation.entries.push_back({.ruleID = finding.ruleID,
                                             .url = of->candidate.observation.url,
                                             .byteCount = item.byteCount,
                                             .allocatedByteCount = item.allocatedByteCount});
                operation.candidates.push_back(std::move(of->candidate));
            }
        }
    }

    [[nodiscard]] const AIToolCleanupLeftOut& leftOut() const { return leftOut_; }
    [[nodiscard]] std::vector<AIToolCleanupManifest::Operation> operations() && {
        std::vector<AIToolCleanupManifest::Operation> all;
        if (!disposable_.entries.empty()) all.push_back(std::move(disposable_));
        if (!generated_.entries.empty()) all.push_back(std::move(generated_));
        return all;
    }

  private:
    [[nodiscard]] bool isReviewed(const AIToolRuleFinding& finding,
                                  const AIToolArtifact& item) const {
        return !selection_.reviewedGeneratedKeys.empty() &&
               selection_.reviewedGeneratedKeys.contains(finding.key(item));
    }
    [[nodiscard]] bool isWanted(const AIToolRuleFinding& finding, const AIToolArtifact& item,
                                bool isGenerated) const {
        if (isGenerated) return isReviewed(finding, item);
        return selection_.excludedKeys.empty() ||
               !selection_.excludedKeys.contains(finding.key(item));
    }

    /// In the order of the items. Reading their beginnings is most of the work, so several threads
    /// do it, part by part.
    [[nodiscard]] std::vector<std::optional<JudgedItem>>
    judgeAll(const AIToolRuleFinding& finding, const AIToolRecognizer& rule,
             std::span<const AIToolArtifact* const> items) const {
        constexpr std::size_t itemsOfPart = 512;
        constexpr std::size_t maxThreads = 4;
        std::vector<std::optional<JudgedItem>> judged(items.size());
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            Fences fences = fences_;
            AIToolLastLook look(veto_);
            for (std::size_t part = next++; part * itemsOfPart < items.size(); part = next++) {
                const std::size_t end = std::min((part + 1) * itemsOfPart, items.size());
                for (std::size_t i = part * itemsOfPart; i < end; ++i) {
                    judged[i] = judge(finding, rule, *items[i], fences, look);
                }
            }
        };
        const std::size_t parts = (items.size() + itemsOfPart - 1) / itemsOfPart;
        const std::size_t threads = std::min<std::size_t>(
            {parts, maxThreads, std::max(std::thread::hardware_concurrency(), 1U)});
        std::vector<std::jthread> others;
        for (std::size_t i = 1; i < threads; ++i) others.emplace_back(work);
        work();
        others.clear(); // they end first
        return judged;
    }

    [[nodiscard]] JudgedItem judge(const AIToolRuleFinding& finding, const AIToolRecognizer& rule,
                                   const AIToolArtifact& item, Fences& fences,
                                   AIToolLastLook& look) const {
        JudgedItem made{.candidate = report_.candidate(item, finding)};
        const FileURL& url = made.candidate.observation.url;
        if (fences.hold(url.path())) {
            made.leftOut = &AIToolCleanupLeftOut::fenced;
            return made;
        }
        if (rule.group == AIToolArtifactGroup::generatedWork) return made;
        const bool isForGood = selection_.disposableMode == CleanupExecutionMode::permanent;
        const RiskTier tier = made.candidate.assessment.tier;
        const bool mayGoReviewed =
            tier == RiskTier::reviewCarefully && !isForGood && isReviewed(finding, item);
        if (tier != RiskTier::safeToReclaim && !mayGoReviewed) {
            made.leftOut = &AIToolCleanupLeftOut::needingReview;
        } else if (isForGood && rule.isForTrashOnly) {
            made.leftOut = &AIToolCleanupLeftOut::forTrashOnly;
        } else {
            made.vetoed = look.reason(rule, finding.candidateRootURL, url);
        }
        return made;
    }

    const AIToolAuditReport& report_;
    const AIToolCleanupSelection& selection_;
    Fences fences_;
    AIToolLastLook::Veto veto_;
    AIToolCleanupLeftOut leftOut_;
    AIToolCleanupManifest::Operation disposable_{
        .mode = {}, .group = AIToolArtifactGroup::disposableCache, .entries = {}, .candidates = {}};
    AIToolCleanupManifest::Operation generated_{
        .mode = {}, .group = AIToolArtifactGroup::generatedWork, .entries = {}, .candidates = {}};
};

} // namespace

AIToolCleanupSelection AIToolCleanupSelection::recommended(const AIToolAuditReport& forReport) {
    AIToolCleanupSelection ticked;
    for (const AIToolRuleFinding& finding : forReport.ruleFindings) {
        const auto rule = forReport.home.layout().recognizer(finding.ruleID);
        if (finding.group == AIToolArtifactGroup::disposableCache && !finding.artifacts.empty() &&
            rule && rule->recognizer->isRecommended) {
            ticked.disposableRuleIDs.insert(finding.ruleID);
        }
    }
    return ticked;
}

std::vector<std::string> AIToolCleanupLeftOut::lines(const LocaleText& locale) const {
    std::vector<std::string> all;
    const auto add = [&](const Tally& tally, std::string_view why) {
        if (tally.count == 0) return;
        all.push_back(countedItems(tally.count, locale) + " (" +
                      RoomText::bytes(tally.byteCount, locale) + ") left out: " + std::string(why));
    };
    for (const auto& [reason, tally] : vetoed) {
        switch (reason) {
        case AIToolVeto::Reason::tellingName:
            add(tally, "the name speaks of a conversation or a credential.");
            break;
        case AIToolVeto::Reason::tellingContents:
            add(tally, "the contents look like a database or a conversation.");
            break;
        case AIToolVeto::Reason::unreadable: add(tally, "nobody can say what is inside."); break;
        }
    }
    add(fenced, "in a folder in which Tidyro takes nothing.");
    add(forTrashOnly, "these only ever go to the Trash.");
    add(needingReview, "each of these needs your review, and none may be removed permanently.");
    return all;
}

std::expected<AIToolCleanupManifest, AIToolCleanupError>
AIToolCleanupManifest::make(const AIToolAuditReport& from, const AIToolCleanupSelection& selection,
                            Timestamp now, const Making& making) {
    Taking taking(from, selection, making);
    // What was found under another layout was decided by other rules.
    if (from.layoutVersion == from.home.layoutVersion()) {
        for (const AIToolRuleFinding& finding : from.ruleFindings) taking.takeFrom(finding);
    }
    if (making.leftOut != nullptr) *making.leftOut = taking.leftOut();
    AIToolCleanupManifest made{.id = platform::randomUUID(),
                               .tool = from.home.tool,
                               .layoutVersion = from.layoutVersion,
                               .home = from.home,
                               .createdAt = now,
                               .expiresAt = now.adding(lifetime),
                               .operations = std::move(taking).operations()};
    if (made.operations.empty()) return std::unexpected(AIToolCleanupError::nothingSelected);
    for (const Operation& operation : made.operations) {
        if (operation.mode == CleanupExecutionMode::permanent &&
            operation.group != AIToolArtifactGroup::disposableCache) {
            return std::unexpected(AIToolCleanupError::permanentRequiresDisposable);
        }
    }
    return made;
}

AIToolCleanupBatch AIToolCleanupBatch::recommended(const Request& request) {
    AIToolCleanupBatch batch{.id = platform::randomUUID(), .manifests = {}};
    for (const AIToolAuditReport& report : request.reports) {
        const auto chosen = request.selections.find(report.home);
        AIToolCleanupSelection selection = chosen != request.selections.end()
                                               ? chosen->second
                                               : AIToolCleanupSelection::recommended(report);
        selection.disposableMode = request.mode;
        selection.generatedWorkMode = request.mode == CleanupExecutionMode::permanent
                                          ? CleanupExecutionMode::recoverable
                                          : request.mode;
        auto manifest = AIToolCleanupManifest::make(report, selection, request.now,
                                                    {.fenceRoots = request.fenceRoots,
                                                     .veto = request.veto,
                                                     .leftOut = &batch.leftOut[report.home]});
        if (!manifest) continue; // there is nothing to take in this home
        batch.toolBytesBefore[report.home] = report.totalIncludingStoresByteCount();
        batch.manifests.push_back(*std::move(manifest));
    }
    return batch;
}

} // namespace tidyro
