#include "StorageEngine/AITools/Cleanup/AIToolCleanupRunner.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "Base/StringTable.h"
#include "StorageEngine/Cleanup/Planning/CleanupSheetMaker.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using enum AIToolCleanupError;
using Line = AIToolCleanupOutcome::Line;
using Operation = AIToolCleanupManifest::Operation;

constexpr std::string_view notReached = "Not reached before the cleanup stopped.";
constexpr std::string_view tooMuchChanged =
    "Too much had changed since the check, so Tidyro stopped before touching anything. Check again "
    "for a fresh list.";
constexpr std::string_view unreadableHome =
    "The tool's folder could not be read again, so nothing was touched. Audit again.";
constexpr std::string_view stoppedBefore = "The cleanup was stopped before anything was touched.";

/// So many items that are no longer eligible say that the list itself is out of date.
bool isTooMuch(std::size_t refused, std::size_t all) {
    constexpr std::size_t atLeast = 10;
    return refused >= atLeast && refused > all / 4;
}

bool wasReached(CleanupMoveDisposition disposition) {
    return disposition == CleanupMoveDisposition::movedToTrash ||
           disposition == CleanupMoveDisposition::permanentlyRemoved;
}

std::size_t countLines(const std::vector<Line>& lines,
                       std::optional<CleanupMoveDisposition> disposition) {
    return static_cast<std::size_t>(std::ranges::count(lines, disposition, &Line::disposition));
}

std::uint64_t bytesOfLines(const std::vector<Line>& lines, CleanupMoveDisposition disposition) {
    std::uint64_t bytes = 0;
    for (const Line& line : lines) {
        if (line.disposition == disposition) bytes = saturatingAdd(bytes, line.byteCount);
    }
    return bytes;
}

/// Whether the manifest is one that could have been made.
bool isWellFormed(const AIToolCleanupManifest& manifest) {
    if (manifest.tool != manifest.home.tool) return false;
    return std::ranges::all_of(manifest.operations, [](const Operation& operation) {
        return std::ranges::equal(operation.entries, operation.candidates,
                                  [](const auto& entry, const CleanupCandidate& candidate) {
                                      return entry.url == candidate.observation.url &&
                                             entry.byteCount == candidate.observation.byteCount;
                                  });
    });
}

/// Whether all that is removed for good may be.
bool mayBeRemovedForGood(const AIToolCleanupManifest& manifest, const Operation& operation) {
    if (operation.mode != CleanupExecutionMode::permanent) return true;
    if (operation.group != AIToolArtifactGroup::disposableCache) return false;
    for (std::size_t i = 0; i < operation.entries.size(); ++i) {
        const auto rule = manifest.home.layout().recognizer(operation.entries[i].ruleID);
        if (!rule || rule->recognizer->isForTrashOnly ||
            rule->recognizer->group != AIToolArtifactGroup::disposableCache ||
            operation.candidates[i].assessment.tier != RiskTier::safeToReclaim) {
            return false;
        }
    }
    return true;
}

} // namespace

std::size_t AIToolCleanupOutcome::completedCount() const {
    return countLines(lines, CleanupMoveDisposition::movedToTrash) +
           countLines(lines, CleanupMoveDisposition::permanentlyRemoved) +
           countLines(lines, CleanupMoveDisposition::simulated);
}
std::size_t AIToolCleanupOutcome::refusedCount() const {
    return countLines(lines, CleanupMoveDisposition::refused);
}
std::size_t AIToolCleanupOutcome::failedCount() const {
    return countLines(lines, CleanupMoveDisposition::failed);
}
std::size_t AIToolCleanupOutcome::untouchedCount() const { return countLines(lines, std::nullopt); }
std::uint64_t AIToolCleanupOutcome::movedToTrashByteCount() const {
    return bytesOfLines(lines, CleanupMoveDisposition::movedToTrash);
}
std::uint64_t AIToolCleanupOutcome::permanentlyRemovedByteCount() const {
    return bytesOfLines(lines, CleanupMoveDisposition::permanentlyRemoved);
}

AIToolCleanupRunner::CarryOut AIToolCleanupRunner::through(CleanupSession& session) {
    return [&session](const PreparedCleanup& prepared, const CleanupSessionApproval& approval,
                      const Progress& progress, const CancelToken& cancel) {
        return session.carryOut(prepared, approval, progress, cancel);
    };
}

AIToolCleanupRunner::Capacity AIToolCleanupRunner::capacityReader(const SystemCare& care) {
    return [care](const FileURL& folder) -> std::optional<std::uint64_t> {
        const auto all = care.capacities();
        const auto real = FolderResolver::resolved(folder.path());
        if (!all || !real) return std::nullopt;
        const VolumeCapacity* deepest = nullptr;
        for (const VolumeCapacity& each : *all) {
            const std::string& mounted = each.mountURL.path();
            if (!path::isInsideOrEqual(*real, mounted)) continue;
            if (deepest == nullptr || deepest->mountURL.path().size() < mounted.size()) {
                deepest = &each;
            }
        }
        return deepest != nullptr ? std::optional(deepest->freeByteCount) : std::nullopt;
    };
}

/// One execution, from the fresh audit to the lines.
class AIToolCleanupRunner::Run {
  public:
    Run(AIToolCleanupRunner& runner, const Request& request)
        : runner_(runner),
          options_(runner.options_),
          request_(request),
          manifest_(request.manifest),
          outcome_{.manifest = manifest_, .toolBytesBefore = request.toolBytesBefore} {
        outcome_.lines.reserve(manifest_.itemCount());
        for (const Operation& operation : manifest_.operations) {
            firstLines_.push_back(outcome_.lines.size());
            for (const auto& entry : operation.entries) {
                outcome_.lines.push_back({.path = entry.path(), .byteCount = entry.byteCount});
            }
        }
    }

    [[nodiscard]] AIToolCleanupOutcome carryOut() && {
        // The home may have been exchanged while it was read.
        if (lookAgain() && stillStands()) {
            outcome_.volumeAvailableBefore = available();
            for (std::size_t i = 0; i < manifest_.operations.size(); ++i) {
                if (!outcome_.stopReason) carryOut(i);
            }
            outcome_.removedEmptyFolderCount =
                runner_.removeEmptiedFolders(manifest_, reachedEntries());
            outcome_.volumeAvailableAfter = available();
            const auto after = audit();
            if (after) outcome_.toolBytesAfter = after->totalIncludingStoresByteCount();
        }
        for (Line& line : outcome_.lines) {
            if (!line.disposition && !line.reason) line.reason = notReached;
        }
        return std::move(outcome_);
    }

  private:
    [[nodiscard]] std::expected<AIToolAuditReport, AIToolWalker::Error> audit() const {
        return options_.auditor.audit(manifest_.home, request_.at, request_.cancel);
    }
    [[nodiscard]] std::optional<std::uint64_t> available() const {
        return options_.capacity ? options_.capacity(manifest_.home.url) : std::nullopt;
    }
    [[nodiscard]] bool stillStands() {
        if (manifest_.home.stillIdentified()) return true;
        outcome_.stopReason = description(homeChanged);
        return false;
    }

    void refuse(Line& line, std::string_view reason) {
        line.disposition = CleanupMoveDisposition::refused;
        line.reason = reason;
    }

    /// Compares every entry with a fresh audit. False when nothing may be touched.
    [[nodiscard]] bool lookAgain() {
        const auto fresh = audit();
        if (!fresh) {
            outcome_.stopReason = std::holds_alternative<CancellationError>(fresh.error())
                                      ? stoppedBefore
                                      : unreadableHome;
            return false;
        }
        StringMap<std::pair<const AIToolRuleFinding*, const AIToolArtifact*>> eligible;
        if (fresh->layoutVersion == manifest_.layoutVersion) {
            for (const AIToolRuleFinding& finding : fresh->ruleFindings) {
                for (const AIToolArtifact& item : finding.artifacts) {
                    eligible.emplace(finding.url(item).path(), std::pair(&finding, &item));
                }
            }
        }
        std::size_t refused = 0;
        auto line = outcome_.lines.begin();
        for (const Operation& operation : manifest_.operations) {
            for (const CleanupCandidate& candidate : operation.candidates) {
                const auto found = eligible.find(candidate.observation.url.path());
                const bool isAsItWas =
                    found != eligible.end() &&
                    fresh->candidate(*found->second.second, *found->second.first) == candidate;
                if (!isAsItWas) {
                    const auto issue = options_.checks.issueOf(candidate, request_.at);
                    refuse(*line, explanation(issue.value_or(RevalidationIssue::itemChanged)));
                    ++refused;
                }
                ++line;
            }
        }
        if (!isTooMuch(refused, outcome_.lines.size())) return true;
        outcome_.stopReason = tooMuchChanged;
        return false;
    }

    void carryOut(std::size_t index) {
        const Operation& operation = manifest_.operations[index];
        std::vector<CleanupCandidate> candidates;
        std::vector<LocalItemID> reviewed;
        std::map<LocalItemID, std::size_t> lines; ///< by what receipts call their items
        for (std::size_t i = 0; i < operation.candidates.size(); ++i) {
            const std::size_t line = firstLines_[index] + i;
            if (outcome_.lines[line].disposition) continue;
            const CleanupCandidate& candidate = operation.candidates[i];
            // It stands in the manifest because it was ticked by itself.
            if (candidate.assessment.tier == RiskTier::reviewCarefully) {
                reviewed.push_back(candidate.id());
            }
            lines.emplace(candidate.id(), line);
            candidates.push_back(candidate);
        }
        if (candidates.empty()) return;
        auto plan = CleanupPlanner(AIToolCleanupManifest::lifetime, manifest_.home.userHome)
                        .makeExactPlan({.candidates = std::move(candidates),
                                        .mode = operation.mode,
                                        .explicitlyApprovedReviewItems = reviewed,
                                        .now = manifest_.createdAt});
        if (!plan) {
            outcome_.stopReason = description(plan.error());
            return;
        }
        const std::set<LocalItemID> reviewedOnes(reviewed.begin(), reviewed.end());
        PreparedCleanup prepared{.plan = *std::move(plan), .sheet = {}, .digest = {}};
        prepared.sheet =
            CleanupSheetMaker::sheetFor({.plan = prepared.plan, .reviewed = &reviewedOnes});
        // What the audit saw counts, not what is there by now.
        for (CleanupSheetEntry& noted : prepared.sheet.entries) {
            const auto line = lines.find(noted.candidateID);
            if (line == lines.end()) continue;
            const auto& audited = operation.candidates[line->second - firstLines_[index]];
            if (audited.observation.creationDate) {
                noted.creationDate = audited.observation.creationDate;
            }
        }
        prepared.digest = cleanupDigest(prepared.plan, prepared.sheet);
        const auto approval =
            CleanupSession::approve(prepared, reviewedOnes, request_.approval.approvedAt);
        auto receipt = options_.carryOut(prepared, approval, progressFrom(), request_.cancel);
        if (receipt) {
            tell(index, *std::move(receipt), lines);
            return;
        }
        outcome_.stopReason = receipt.error().description();
        const auto* failed = std::get_if<CleanupExecutionError>(&receipt.error().value);
        const auto* refused =
            failed != nullptr
                ? std::get_if<CleanupExecutionError::RevalidationFailed>(&failed->value)
                : nullptr;
        if (refused != nullptr) {
            outcome_.stopReason.reset(); // each line tells its own reason
            for (const EntryRevalidation& entry : refused->entries) {
                const auto line = lines.find(entry.candidateID);
                if (line == lines.end() || !entry.issue) continue;
                refuse(outcome_.lines[line->second], explanation(*entry.issue));
            }
        } else if (const CleanupReceipt* partly = receipt.error().receipt()) {
            tell(index, *partly, lines);
        }
    }

    /// Counts through all operations.
    [[nodiscard]] Progress progressFrom() const {
        if (!request_.onProgress) return nullptr;
        CleanupExecutor::Progress before{.itemsCompleted = 0,
                                         .itemsTotal = outcome_.lines.size(),
                                         .itemsRefused = outcome_.refusedCount(),
                                         .bytesReclaimed = 0};
        for (const Line& line : outcome_.lines) {
            if (!line.disposition) continue;
            ++before.itemsCompleted;
            if (wasReached(*line.disposition)) {
                before.bytesReclaimed = saturatingAdd(before.bytesReclaimed, line.byteCount);
            }
        }
        return [before, onProgress = request_.onProgress](const CleanupExecutor::Progress& now) {
            onProgress(
                {.itemsCompleted = before.itemsCompleted + now.itemsCompleted,
                 .itemsTotal = before.itemsTotal,
                 .itemsRefused = before.itemsRefused + now.itemsRefused,
                 .bytesReclaimed = saturatingAdd(before.bytesReclaimed, now.bytesReclaimed)});
        };
    }

    void tell(std::size_t index, CleanupReceipt receipt,
              const std::map<LocalItemID, std::size_t>& lines) {
        const Operation& operation = manifest_.operations[index];
        for (const CleanupReceiptEntry& entry : receipt.entries) {
            const auto found = lines.find(entry.candidateID);
            if (found == lines.end()) continue;
            if (entry.failureDescription == CleanupExecutor::notReachedText) continue;
            Line& line = outcome_.lines[found->second];
            line.disposition = entry.disposition;
            line.reason = entry.failureDescription;
            if (line.reason != CleanupExecutor::heldText) continue;
            // The receipt does not say what holds it.
            const auto& candidate = operation.candidates[found->second - firstLines_[index]];
            if (const auto issue = options_.checks.issueOf(candidate, request_.at)) {
                line.reason = explanation(*issue);
            }
        }
        outcome_.receipts.push_back(std::move(receipt));
    }

    [[nodiscard]] std::vector<CleanupReceiptEntry> reachedEntries() const {
        std::vector<CleanupReceiptEntry> all;
        for (const CleanupReceipt& receipt : outcome_.receipts) {
            std::ranges::copy_if(receipt.entries, std::back_inserter(all), wasReached,
                                 &CleanupReceiptEntry::disposition);
        }
        return all;
    }

    AIToolCleanupRunner& runner_;
    const Options& options_;
    const Request& request_;
    const AIToolCleanupManifest& manifest_;
    std::vector<std::size_t> firstLines_; ///< of each operation
    AIToolCleanupOutcome outcome_;
};

std::expected<AIToolCleanupOutcome, AIToolCleanupError>
AIToolCleanupRunner::execute(const Request& request) {
    const AIToolCleanupManifest& manifest = request.manifest;
    const AIToolCleanupApproval& approval = request.approval;
    if (!isWellFormed(manifest) || !approval.matches(manifest)) {
        return std::unexpected(approvalDoesNotMatch);
    }
    const double age =
        request.at.secondsSinceReference() - manifest.createdAt.secondsSinceReference();
    // A list from the future was made before the clock was set back, and may be of any age.
    const bool isCurrent =
        age >= 0 && age <= AIToolCleanupManifest::lifetime && request.at <= manifest.expiresAt;
    if (!isCurrent) return std::unexpected(manifestExpired);
    // Nobody approves a list before it was made, or in the future.
    if (!(manifest.createdAt <= approval.approvedAt && approval.approvedAt <= request.at)) {
        return std::unexpected(approvalDoesNotMatch);
    }
    if (!std::ranges::all_of(manifest.operations, [&](const Operation& operation) {
            return mayBeRemovedForGood(manifest, operation);
        })) {
        return std::unexpected(permanentRequiresDisposable);
    }
    if (!manifest.home.stillIdentified() ||
        manifest.layoutVersion != manifest.home.layoutVersion()) {
        return std::unexpected(homeChanged);
    }
    return Run(*this, request).carryOut();
}

} // namespace tidyro
