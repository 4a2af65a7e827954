#include "StorageEngine/Recovery/CleanupRecovery.h"

#include <utility>
#include <variant>

#include "Base/RoomText.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro {

namespace {

/// Adds what became of one entry to a report.
struct AddToReport {
    InterruptedCleanupReport& report;
    const CleanupIntentEntry& entry;

    void operator()(const intent_outcome::MovedToTrash& moved) const {
        report.movedToTrash.push_back(entry);
        report.movedItems.push_back({.originalURL = entry.sourceURL,
                                     .trashURL = moved.url,
                                     .intentID = report.intentID,
                                     .candidateID = entry.candidateID});
    }
    void operator()(const intent_outcome::RestoredFromTrash&) const { ++report.restoredCount; }
    void operator()(const intent_outcome::NoLongerInTrash&) const { ++report.noLongerInTrashCount; }
    void operator()(const intent_outcome::Failed& failed) const {
        report.failureDescriptions.push_back(failed.reason);
    }
    void operator()(const intent_outcome::PermanentlyRemoved&) const {
        ++report.permanentlyRemovedCount;
    }
    void operator()(const intent_outcome::Simulated&) const {} // it changed nothing
};

} // namespace

bool CleanupRecoveryReconciler::isThere(const std::string& path) {
    return platform::fileMetadata(path).has_value();
}

CleanupIntentJournaling::Result<std::vector<InterruptedCleanupReport>>
CleanupRecoveryReconciler::pendingReports() const {
    const auto open = journal->openIntents();
    if (!open) return std::unexpected(open.error());
    std::vector<InterruptedCleanupReport> reports;
    for (const RecordedIntent& recorded : open->intents) {
        if (!recorded.isRunning) reports.push_back(report(recorded));
    }
    return reports;
}

InterruptedCleanupReport CleanupRecoveryReconciler::report(const RecordedIntent& recorded) const {
    const CleanupIntent& intent = recorded.intent;
    InterruptedCleanupReport report{.intentID = intent.id,
                                    .planID = intent.planID,
                                    .startedAt = intent.createdAt,
                                    .mode = intent.mode,
                                    .isReceiptMissing = recorded.isReceiptMissing,
                                    .passedOverLineCount = recorded.passedOverLineCount};
    for (const CleanupIntentEntry& entry : intent.entries) {
        if (entry.outcome) {
            std::visit(AddToReport{report, entry}, entry.outcome->value);
        } else if (fileExists(entry.sourceURL.path())) {
            report.untouched.push_back(entry);
        } else {
            report.unaccountedFor.push_back(entry);
        }
    }
    return report;
}

std::string InterruptedCleanupReport::summary(const LocaleText& locale) const {
    const std::uint64_t changed = movedToTrash.size() + permanentlyRemovedCount + restoredCount +
                                  noLongerInTrashCount + unaccountedFor.size();
    if (changed == 0 && failureDescriptions.empty()) {
        return "This cleanup stopped before it changed anything.";
    }
    std::string text;
    const auto add = [&](std::uint64_t count, std::string_view words) {
        if (count == 0) return;
        if (!text.empty()) text += ", ";
        text += RoomText::counted(count, words, words, locale);
    };
    add(movedToTrash.size(), "moved to Trash");
    add(permanentlyRemovedCount, "removed permanently");
    add(failureDescriptions.size(), "failed");
    add(untouched.size(), "untouched");
    add(restoredCount, "restored");
    add(noLongerInTrashCount, "no longer in Trash");
    add(unaccountedFor.size(), "Tidyro could not confirm");
    return text + ".";
}

} // namespace tidyro
