#include "StorageEngine/Cleanup/Execution/CleanupExecutionError.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "Base/RoomText.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {

namespace {

using Error = CleanupExecutionError;

std::string_view whatAModeDoes(CleanupExecutionMode mode) {
    switch (mode) {
    case CleanupExecutionMode::recoverable: return "move items to the Trash";
    case CleanupExecutionMode::permanent: return "remove items for good";
    case CleanupExecutionMode::simulation: break;
    }
    return "run a test that touches nothing";
}

struct Done {
    std::uint64_t count;
    CleanupMoveDisposition disposition;
};

CleanupMoveDisposition dispositionOf(CleanupExecutionMode mode) {
    switch (mode) {
    case CleanupExecutionMode::permanent: return CleanupMoveDisposition::permanentlyRemoved;
    case CleanupExecutionMode::simulation: return CleanupMoveDisposition::simulated;
    case CleanupExecutionMode::recoverable: break;
    }
    return CleanupMoveDisposition::movedToTrash;
}

/// What a run did. All that it did to items is of one kind, which its mode tells when there are
/// none.
Done whatWasDone(const CleanupReceipt& receipt, CleanupExecutionMode mode) {
    using enum CleanupMoveDisposition;
    Done done{.count = 0, .disposition = dispositionOf(mode)};
    for (const CleanupReceiptEntry& entry : receipt.entries) {
        if (entry.disposition == failed || entry.disposition == refused) continue;
        done = {.count = done.count + 1, .disposition = entry.disposition};
    }
    return done;
}

std::string_view phraseFor(CleanupMoveDisposition disposition) {
    switch (disposition) {
    case CleanupMoveDisposition::permanentlyRemoved: return "removed for good";
    case CleanupMoveDisposition::simulated: return "handled in a test run that touched nothing";
    case CleanupMoveDisposition::movedToTrash:
    case CleanupMoveDisposition::failed:
    case CleanupMoveDisposition::refused: break;
    }
    return "moved to the Trash";
}

std::string partialProgress(const Done& done, const LocaleText& locale) {
    return RoomText::counted(done.count, "item was already ", "items were already ", locale) +
           std::string(phraseFor(done.disposition));
}

/// What a sentence about the untouched rest leaves out.
std::string exception(bool isSomethingElsewhere) {
    return isSomethingElsewhere ? ", except for what the receipt tells of items that failed" : "";
}

/// The issue that most entries have; of equally many the first.
std::optional<RevalidationIssue> mainIssue(const std::vector<EntryRevalidation>& entries) {
    std::optional<RevalidationIssue> most;
    std::ptrdiff_t mostEntries = 0;
    for (const RevalidationIssue issue : allCases<RevalidationIssue>()) {
        const auto found = std::ranges::count(entries, issue, &EntryRevalidation::issue);
        if (found > mostEntries) {
            most = issue;
            mostEntries = found;
        }
    }
    return most;
}

struct Describe {
    const LocaleText& locale;

    std::string operator()(const Error::PlanModeMismatch& error) const {
        return "This list was prepared to " + std::string(whatAModeDoes(error.expected)) +
               ", but Tidyro tried to " + std::string(whatAModeDoes(error.found)) +
               " instead. Nothing was touched. Start the cleanup again.";
    }
    std::string operator()(const Error::PermanentCleanupRefusedItem&) const {
        return "One of the items in this permanent removal isn't rated safe enough to remove for "
               "good, so nothing was touched. Only items marked Safe to Reclaim can be removed "
               "permanently. Move the rest to the Trash instead.";
    }
    std::string operator()(const Error::MissingPermanentAcknowledgement&) const {
        return "Permanent removal needs a separate confirmation of exactly what it's about to "
               "remove for good, and Tidyro didn't receive one. Nothing was touched.";
    }
    std::string operator()(const Error::PermanentAcknowledgementDoesNotMatchPlan&) const {
        return "The count or size you confirmed doesn't match what's about to be removed, so "
               "nothing was touched. Review the list again and confirm the numbers shown on it.";
    }
    std::string operator()(const Error::InvalidPlan&) const {
        return "This list of items wasn't usable, so nothing was touched. Scan again to build a "
               "new list.";
    }
    std::string operator()(const Error::ApprovalForDifferentPlan&) const {
        return "The confirmation you gave belongs to a different list, so nothing was touched. "
               "Review this list and confirm it directly.";
    }
    std::string operator()(const Error::InvalidApprovalTimestamp&) const {
        return std::string(platform::systemText(SystemText::approvalOutOfTime));
    }
    std::string operator()(const Error::ApprovalDoesNotMatchPlan&) const {
        return "The list of items changed after you confirmed it, so nothing was touched. Review "
               "the current list and confirm it again.";
    }
    std::string operator()(const Error::MissingItemLevelApproval&) const {
        return "One of the items needed your own confirmation before it could be touched, and "
               "didn't have it, so it was left alone. Review that item individually and confirm "
               "it.";
    }
    std::string operator()(const Error::RevalidationFailed& error) const {
        const bool isAll = std::ranges::all_of(
            error.entries, [](const EntryRevalidation& entry) { return entry.issue.has_value(); });
        const auto issue = mainIssue(error.entries);
        const std::string beginning =
            isAll && issue ? "Nothing was touched. Every item in this cleanup failed its final "
                             "check before anything happened. " +
                                 std::string(explanation(*issue))
                           : "The list no longer matches what's on disk.";
        return beginning + " Scan again to get a current list.";
    }
    std::string operator()(const Error::JournalUnavailable& error) const {
        if (error.isAnotherRunning) return error.reason;
        return "Tidyro could not open its safety log, so it stopped before touching anything.";
    }
    std::string operator()(const Error::JournalStopped& error) const {
        return "Tidyro stopped partway through this cleanup. " + error.error.description();
    }
    std::string operator()(const Error::RevalidationFailedAfterPartial& error) const {
        return "Too much of the rest of the list no longer matched what's on disk. " +
               partialProgress(whatWasDone(error.receipt, error.mode), locale) +
               " before that happened, and the rest were left untouched" +
               exception(error.isSomethingElsewhere) + ". Scan again to review what's left.";
    }
    std::string operator()(const Error::CancelledAfterPartialExecution& error) const {
        const Done done = whatWasDone(error.receipt, CleanupExecutionMode::recoverable);
        if (done.count == 0) {
            return error.isSomethingElsewhere
                       ? "The cleanup was stopped before any item was done. Nothing was touched" +
                             exception(error.isSomethingElsewhere) + "."
                       : "The cleanup was stopped before anything was touched.";
        }
        return "The cleanup was stopped partway through. " + partialProgress(done, locale) +
               " before it stopped. The rest were left untouched" +
               exception(error.isSomethingElsewhere) + ".";
    }
    std::string operator()(const Error::ReceiptPersistenceFailed& error) const {
        const Done done = whatWasDone(error.receipt, error.mode);
        const std::string what =
            locale.count(done.count) + " " + std::string(phraseFor(done.disposition));
        const std::string ending =
            "Nothing else was changed" + exception(error.isSomethingElsewhere) + ".";
        switch (done.disposition) {
        case CleanupMoveDisposition::permanentlyRemoved:
            return what +
                   ", but Tidyro could not save the record of what it removed. Recovery "
                   "will not be able to list them, and there is no way to know exactly "
                   "which files they were. " +
                   ending;
        case CleanupMoveDisposition::simulated:
            return what + ", but Tidyro could not save the record of it.";
        case CleanupMoveDisposition::movedToTrash:
        case CleanupMoveDisposition::failed:
        case CleanupMoveDisposition::refused: break;
        }
        return what +
               ", but Tidyro could not save the record of what it moved. Recovery will not "
               "be able to list them. Check the Trash directly if you need to find them. " +
               ending;
    }
};

} // namespace

std::string CleanupExecutionError::description(const LocaleText& locale) const {
    return std::visit(Describe{locale}, value);
}

CleanupExecutionError CleanupExecutionError::fromBegin(const CleanupIntentJournalError& error) {
    return {JournalUnavailable{
        .reason = error.description(),
        .isAnotherRunning =
            std::holds_alternative<CleanupIntentJournalError::AnotherCleanupRuns>(error.value)}};
}

const CleanupReceipt* CleanupExecutionError::receipt() const {
    return std::visit(
        [](const auto& error) -> const CleanupReceipt* {
            if constexpr (requires { error.receipt; }) return &error.receipt;
            return nullptr;
        },
        value);
}

} // namespace tidyro
