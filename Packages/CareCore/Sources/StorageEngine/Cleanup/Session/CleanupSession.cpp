#include "StorageEngine/Cleanup/Session/CleanupSession.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

#include "Base/PathText.h"
#include "Base/StringTable.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/AITools/AIToolFence.h"
#include "StorageEngine/Cleanup/Planning/CleanupSheetMaker.h"
#include "StorageEngine/PickedItems/ApplicationRemovalPolicy.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "StorageEngine/PickedItems/ProjectArtifactRemovalPolicy.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using Error = CleanupSessionError;

/// The error of a step, as one of the session.
template <class Failure>
std::unexpected<Error> sessionError(Failure failure) {
    return std::unexpected(Error{std::move(failure)});
}

/// Whether an item that a receipt put into the Trash may still be there.
bool isSomethingInTrash(const CleanupReceipt& receipt) {
    return std::ranges::any_of(receipt.entries, [](const CleanupReceiptEntry& entry) {
        return entry.disposition == CleanupMoveDisposition::movedToTrash &&
               entry.resultingTrashURL &&
               platform::fileMetadata(entry.resultingTrashURL->path()).has_value();
    });
}

/// Where an item lies, without a link on the way to it.
std::string realPathOf(const FileURL& item) {
    const std::string folder(path::parent(item.path()));
    return path::joined(FolderResolver::resolved(folder).value_or(folder), item.lastComponent());
}

/// The picked folder that a path lies in; null when none is.
const FileURL* pickAround(const std::string& path, const StringMap<FileURL>& picked) {
    for (std::string_view above = path::parent(path); above != "/"; above = path::parent(above)) {
        if (const auto found = picked.find(above); found != picked.end()) return &found->second;
    }
    return nullptr;
}

std::set<LocalItemID> idsOf(const CleanupPlan& plan) {
    std::set<LocalItemID> ids;
    for (const CleanupPlanEntry& entry : plan.entries) ids.insert(entry.candidateID);
    return ids;
}

} // namespace

std::string CleanupSessionError::description() const {
    return std::visit(
        [](const auto& error) -> std::string {
            using Case = std::decay_t<decltype(error)>;
            if constexpr (std::is_same_v<Case, UnknownReceipt>) {
                return "There is no cleanup of this number in the history.";
            } else if constexpr (std::is_same_v<Case, CleanupPlanFileError>) {
                return std::string(tidyro::description(error));
            } else {
                return error.description();
            }
        },
        value);
}

const CleanupReceipt* CleanupSessionError::receipt() const {
    const auto* failed = std::get_if<CleanupExecutionError>(&value);
    return failed != nullptr ? failed->receipt() : nullptr;
}

struct CleanupSession::Body {
    Options options;
    FileURL support;
    platform::LiveVolumes liveVolumes = {};
    platform::LiveRunningProcesses liveProcesses = {};
    platform::LiveRunningApplications liveApplications = {};
    platform::LiveFolderChanges liveChanges = {};
    /// New for each step that acts: one that failed once never flushes again.
    std::unique_ptr<platform::FolderFlushes> flushes = nullptr;
    std::unique_ptr<LocalRuntimeSafetyContextProvider> contexts = nullptr;
    std::unique_ptr<FileCleanupIntentJournal> journal = nullptr;
    std::optional<JSONRecoveryLedger> ledger = std::nullopt;

    explicit Body(Options given)
        : options(std::move(given)),
          support(options.support.value_or(
              platform::applicationSupportFolder().appendingFolder("Harborline"))) {
        Machine& machine = options.machine;
        if (machine.volumes == nullptr) machine.volumes = &liveVolumes;
        if (machine.processes == nullptr) machine.processes = &liveProcesses;
        if (machine.applications == nullptr) machine.applications = &liveApplications;
        if (machine.changes == nullptr) machine.changes = &liveChanges;
        startFlushes();
        contexts = std::make_unique<LocalRuntimeSafetyContextProvider>(
            options.home,
            LocalRuntimeSafetyContextProvider::Machine{.volumes = *machine.volumes,
                                                       .processes = *machine.processes,
                                                       .applications = *machine.applications,
                                                       .clock = machine.clock},
            LocalRuntimeSafetyContextProvider::Options{.toolState = [home = options.home] {
                return AIToolFence::find(AIToolHomeDiscovery::ofThisPerson(home));
            }});
        FileCleanupIntentJournal::Options journalOptions;
        journalOptions.flushChanges = [this] { return flushes->flush(); };
        journalOptions.gate = machine.gate;
        journal = std::make_unique<FileCleanupIntentJournal>(support.appendingFolder("intents"),
                                                             journalOptions);
    }

    void startFlushes() {
        flushes = std::make_unique<platform::FolderFlushes>(*options.machine.changes);
    }
    [[nodiscard]] FileURL ledgerURL() const {
        return support.appendingFolder("Recovery").appending("ledger.json");
    }
    [[nodiscard]] FileURL plansFolder() const { return support.appendingFolder("plans"); }
    [[nodiscard]] FileURL planURL(const UUID& planID) const {
        return plansFolder().appending(planID.text() + ".json");
    }

    [[nodiscard]] Result<JSONRecoveryLedger*> openLedger() {
        if (ledger) return &*ledger;
        const FileURL keyURL = support.appendingFolder("Keys").appending("recovery-ledger.key");
        auto key = recoveryLedgerKey(keyURL, ledgerURL(), *options.machine.gate);
        if (!key) return sessionError(key.error());
        auto opened =
            JSONRecoveryLedger::open(ledgerURL(), *std::move(key),
                                     {.isStillNeeded = isSomethingInTrash,
                                      .giveSpaceBack = [this] { return journal->giveSpaceBack(); },
                                      .gate = options.machine.gate});
        if (!opened) return sessionError(opened.error());
        ledger.emplace(*std::move(opened));
        return &*ledger;
    }
    [[nodiscard]] Result<std::vector<CleanupReceipt>> storedReceipts() {
        // Whoever only looks makes no key.
        if (!ledger && !platform::fileMetadata(ledgerURL().path())) {
            return std::vector<CleanupReceipt>{};
        }
        const auto opened = openLedger();
        if (!opened) return std::unexpected(opened.error());
        auto stored = (*opened)->storedReceipts();
        if (!stored) return sessionError(stored.error());
        return *std::move(stored);
    }

    [[nodiscard]] CleanupSettlement settlement(RecoveryLedger* into) {
        return CleanupSettlement({.journal = journal.get(),
                                  .ledger = into,
                                  .changes = options.machine.changes,
                                  .flushes = flushes.get(),
                                  .gate = options.machine.gate,
                                  .volumes = options.machine.volumes,
                                  .trashHome = options.machine.trashHome,
                                  .now = options.machine.clock});
    }

    /// What every step that acts begins with: the history can be written, and what an interrupted
    /// cleanup left is put in order.
    [[nodiscard]] Result<JSONRecoveryLedger*> begin() {
        startFlushes();
        auto opened = openLedger();
        if (!opened) return opened;
        if (const auto stored = (*opened)->storedReceipts(); !stored) {
            return sessionError(stored.error());
        }
        const auto settled = settlement(*opened).settle();
        if (!settled) return sessionError(settled.error());
        startFlushes();
        return opened;
    }

    /// Drops what nobody can ask for any more. That it fails changes nothing for anybody.
    void tidyUp() {
        if (!ledger) return;
        static_cast<void>(ledger->receipts(options.machine.clock()));
        static_cast<void>(settlement(&*ledger).forgetThoseWithoutReceipts(
            [this] { return ledger->storedReceipts(); }));
        const auto hold = journal->hold();
        const auto stored = ledger->storedReceipts();
        const auto intents = hold ? journal->allIntents() : std::unexpected(hold.error());
        if (!stored || !intents || !intents->unreadable.empty()) return;
        std::set<UUID> needed;
        for (const CleanupReceipt& receipt : *stored) needed.insert(receipt.planID);
        for (const RecordedIntent& each : intents->intents) needed.insert(each.intent.planID);
        std::error_code failed;
        for (std::filesystem::directory_iterator entries(plansFolder().path(), failed), end;
             !failed && entries != end; entries.increment(failed)) {
            const std::string name = entries->path().filename().string();
            const auto id = UUID::fromText(std::string_view(name).substr(0, name.find('.')));
            if (id && !needed.contains(*id)) {
                static_cast<void>(
                    platform::removeDurably(entries->path().string(), *options.machine.gate));
            }
        }
    }

    /// The intent that holds the identities of a receipt's items. One plan may have been tried more
    /// than once: the try is told by what it did, and by when it began.
    [[nodiscard]] static const CleanupIntent* intentOf(const CleanupReceipt& receipt,
                                                       const std::vector<RecordedIntent>& all) {
        std::map<std::string_view, const CleanupReceiptEntry*> moved;
        for (const CleanupReceiptEntry& told : receipt.entries) {
            if (told.disposition == CleanupMoveDisposition::movedToTrash) {
                moved.emplace(told.candidateID.rawValue, &told);
            }
        }
        const auto isMoved = [&](const CleanupIntentEntry& entry) {
            const auto told = moved.find(entry.candidateID.rawValue);
            if (told == moved.end() || !entry.outcome) return false;
            const auto* to = std::get_if<intent_outcome::MovedToTrash>(&entry.outcome->value);
            if (to != nullptr) return to->url == told->second->resultingTrashURL;
            return std::holds_alternative<intent_outcome::RestoredFromTrash>(
                       entry.outcome->value) ||
                   std::holds_alternative<intent_outcome::NoLongerInTrash>(entry.outcome->value);
        };
        const CleanupIntent* found = nullptr;
        std::pair<std::ptrdiff_t, bool> best;
        for (const RecordedIntent& each : all) {
            if (each.intent.planID != receipt.planID) continue;
            const std::pair fits(std::ranges::count_if(each.intent.entries, isMoved),
                                 each.intent.createdAt == receipt.createdAt);
            if (found != nullptr && fits < best) continue;
            found = &each.intent;
            best = fits;
        }
        return found;
    }

    [[nodiscard]] std::optional<CleanupPlanSheet> sheetOf(const UUID& planID) const {
        auto file = CleanupPlanFile::read(planURL(planID));
        return file ? std::optional(std::move(file->sheet)) : std::nullopt;
    }

    /// Keeps plan and sheet for as long as a receipt tells of them.
    [[nodiscard]] std::expected<void, CleanupPlanFileError> keepPlan(const PreparedCleanup& made) {
        const auto keep = [&]() -> std::expected<void, CleanupPlanFileError> {
            if (!platform::makePrivateFolder(plansFolder().path())) {
                return std::unexpected(CleanupPlanFileError::unwritable);
            }
            const auto written =
                CleanupPlanFile::write(planURL(made.plan.id), made.plan, made.sheet);
            return written ? std::expected<void, CleanupPlanFileError>()
                           : std::unexpected(written.error());
        };
        auto kept = keep();
        if (!kept && kept.error() == CleanupPlanFileError::unwritable && journal->giveSpaceBack()) {
            kept = keep(); // the disk was full
        }
        return kept;
    }

    [[nodiscard]] CleanupExecutor executor(CleanupExecutionMode mode, RecoveryLedger& into) {
        const bool isActing = changesTheFilesystem(mode);
        CleanupExecutor::Options made{.home = options.home,
                                      .sessionRoots = options.openedFolders,
                                      .ageFloor = options.ageFloor,
                                      .ledger = into,
                                      .journal = isActing ? journal.get() : nullptr,
                                      .flushes = isActing ? flushes.get() : nullptr,
                                      .aiToolRules = options.aiToolRules,
                                      .aiTools = options.aiTools};
        CleanupExecutor::Machine machine{
            .volumes = *options.machine.volumes,
            .applications = *options.machine.applications,
            .freshContext = [this] { return contexts->freshContext(); },
            .changes = *options.machine.changes,
            .gate = options.machine.gate,
            .trashHome = options.machine.trashHome};
        switch (mode) {
        case CleanupExecutionMode::recoverable:
            return CleanupExecutor::recoverable(std::move(made), std::move(machine));
        case CleanupExecutionMode::permanent:
            return CleanupExecutor::permanent(std::move(made), std::move(machine));
        case CleanupExecutionMode::simulation: break;
        }
        return CleanupExecutor::simulation(std::move(made), std::move(machine));
    }

    [[nodiscard]] std::expected<CleanupPlanEntry, std::string> entryOf(const Pick& pick);
};

CleanupSession::CleanupSession(Options options)
    : body_(std::make_unique<Body>(std::move(options))) {}
CleanupSession::~CleanupSession() = default;

// Suggesting ----------------------------------------------------------------------------------

std::expected<SmartCleanupReport, SmartCleanupScan::ScanError>
CleanupSession::suggest(const SmartCleanupScan::ProgressHandler& progress,
                        const CancelToken& cancel) {
    const Machine& machine = body_->options.machine;
    const SmartCleanupScan scan(body_->options.home, *body_->contexts, *machine.volumes,
                                {.ageFloor = body_->options.ageFloor,
                                 .secondsBetweenLooks = machine.secondsBetweenLooks,
                                 .clock = machine.clock});
    auto report = scan.run(progress, cancel);
    if (report) {
        // What cannot be kept is only not told the next time.
        static_cast<void>(SuggestionSummary::fromReport(*report).write(
            body_->support.appending("last-suggestions.json")));
    }
    return report;
}

std::optional<SuggestionSummary> CleanupSession::lastSuggestions() const {
    return SuggestionSummary::read(body_->support.appending("last-suggestions.json"));
}

// Planning ------------------------------------------------------------------------------------

std::expected<PreparedCleanup, CleanupPlanningError> CleanupSession::plan(Selection selection) {
    const CleanupPlanner planner(selection.lifetime, body_->options.home);
    const std::vector<LocalItemID> reviewed(selection.reviewed.begin(), selection.reviewed.end());
    const Timestamp now = body_->options.machine.clock();
    auto made = selection.goal
                    ? planner.makePlan({.goal = {.byteCount = *selection.goal,
                                                 .purpose = std::move(selection.purpose)},
                                        .candidates = std::move(selection.candidates),
                                        .mode = selection.mode,
                                        .preferredOrder = selection.preferredOrder,
                                        .explicitlyApprovedReviewItems = reviewed,
                                        .now = now})
                    : planner.makeExactPlan({.candidates = std::move(selection.candidates),
                                             .mode = selection.mode,
                                             .explicitlyApprovedReviewItems = reviewed,
                                             .purpose = std::move(selection.purpose),
                                             .now = now});
    if (!made) return std::unexpected(made.error());
    PreparedCleanup prepared{.plan = *std::move(made), .sheet = {}, .digest = {}};
    prepared.sheet =
        CleanupSheetMaker::sheetFor({.plan = prepared.plan, .reviewed = &selection.reviewed});
    prepared.digest = cleanupDigest(prepared.plan, prepared.sheet);
    return prepared;
}

std::expected<CleanupPlanEntry, std::string> CleanupSession::Body::entryOf(const Pick& pick) {
    const DiskItemRemovalPolicy::Options policy{.home = options.home,
                                                .openedFolders = options.openedFolders,
                                                .context = contexts->context(),
                                                .volumes = *options.machine.volumes};
    const Timestamp at = options.machine.clock();
    const auto told = [](auto answer) -> std::expected<CleanupPlanEntry, std::string> {
        if (!answer) return std::unexpected(std::string(explanation(answer.error())));
        return *std::move(answer);
    };
    if (pick.artifact) {
        return told(
            ProjectArtifactRemovalPolicy(policy).planEntry({.artifact = *pick.artifact,
                                                            .measuredBytes = pick.measuredBytes,
                                                            .built = pick.measuredAt,
                                                            .at = at}));
    }
    if (pick.isApplication) {
        return told(ApplicationRemovalPolicy({.home = options.home,
                                              .context = policy.context,
                                              .volumes = *options.machine.volumes,
                                              .applications = *options.machine.applications})
                        .planEntry({.bundle = pick.item,
                                    .measuredBytes = pick.measuredBytes,
                                    .built = pick.measuredAt,
                                    .at = at}));
    }
    return told(DiskItemRemovalPolicy(policy).planEntry({.item = pick.item,
                                                         .placeID = pick.placeID,
                                                         .measuredBytes = pick.measuredBytes,
                                                         .group = pick.group,
                                                         .built = pick.measuredAt,
                                                         .at = at}));
}

CleanupSession::PickedCleanup CleanupSession::planPicks(const std::vector<Pick>& picks,
                                                        double lifetime) {
    const Timestamp now = body_->options.machine.clock();
    PreparedCleanup prepared{.plan = {.id = platform::randomUUID(),
                                      .goal = {.byteCount = 0},
                                      .entries = {},
                                      .createdAt = now,
                                      .expiresAt = now.adding(std::max(1.0, lifetime)),
                                      .mode = CleanupExecutionMode::recoverable},
                             .sheet = {},
                             .digest = {}};
    std::map<LocalItemID, KeptCopy> keptCopies;
    std::set<LocalItemID> known;
    PickedCleanup picked;
    struct Accepted {
        const Pick& pick;
        CleanupPlanEntry entry;
        std::string realPath;
    };
    std::vector<Accepted> accepted;
    StringMap<FileURL> acceptedPaths;
    for (const Pick& pick : picks) {
        auto entry = body_->entryOf(pick);
        if (!entry) {
            picked.refused.push_back({.item = pick.item, .reason = std::move(entry.error())});
            continue;
        }
        std::string realPath = realPathOf(entry->sourceURL);
        acceptedPaths.emplace(realPath, pick.item);
        accepted.push_back({pick, *std::move(entry), std::move(realPath)});
    }
    for (auto& [pick, entry, realPath] : accepted) {
        // It goes with the folder; by itself its bytes would count twice, and it would fail.
        if (const FileURL* folder = pickAround(realPath, acceptedPaths)) {
            picked.refused.push_back(
                {.item = pick.item,
                 .reason = "It lies in " + folder->path() +
                           ", which was picked as well, so it goes with that folder."});
            continue;
        }
        if (!known.insert(entry.candidateID).second) continue;
        if (pick.keptCopy) {
            entry.proofCard.category = CleanupCategory::exactDuplicate;
            keptCopies.emplace(entry.candidateID, *pick.keptCopy);
        }
        prepared.plan.entries.push_back(std::move(entry));
    }
    if (prepared.plan.entries.empty()) return picked;
    prepared.plan.goal.byteCount = prepared.plan.potentiallyReclaimableByteCount();
    prepared.sheet = CleanupSheetMaker::sheetFor(
        {.plan = prepared.plan, .keptCopies = &keptCopies, .reviewed = &known});
    prepared.digest = cleanupDigest(prepared.plan, prepared.sheet);
    picked.prepared = std::move(prepared);
    return picked;
}

CleanupSessionApproval CleanupSession::approve(const PreparedCleanup& prepared,
                                               const std::set<LocalItemID>& reviewed,
                                               Timestamp at) {
    const CleanupPlan& plan = prepared.plan;
    CleanupSessionApproval made{.digest = prepared.digest,
                                .approval = {.planID = plan.id,
                                             .approvedCandidateIDs = idsOf(plan),
                                             .itemLevelApprovedCandidateIDs = reviewed,
                                             .approvedAt = at}};
    if (plan.mode == CleanupExecutionMode::permanent) {
        made.acknowledgement = PermanentCleanupAcknowledgement{
            .planID = plan.id,
            .itemCount = static_cast<std::int64_t>(plan.entries.size()),
            .byteCount = plan.potentiallyReclaimableByteCount(),
            .acknowledgedAt = at};
    }
    return made;
}

// Acting --------------------------------------------------------------------------------------

CleanupSession::Result<CleanupReceipt>
CleanupSession::carryOut(const PreparedCleanup& prepared, const CleanupSessionApproval& approval,
                         const std::function<void(const CleanupExecutor::Progress&)>& progress,
                         const CancelToken& cancel) {
    // The digest is made anew: the approval is of these values, whatever stands beside them.
    if (approval.digest != cleanupDigest(prepared.plan, prepared.sheet)) {
        return sessionError(
            CleanupExecutionError{CleanupExecutionError::ApprovalDoesNotMatchPlan{}});
    }
    InMemoryRecoveryLedger nowhere;
    RecoveryLedger* ledger = &nowhere;
    const bool isActing = changesTheFilesystem(prepared.plan.mode);
    std::optional<FileCleanupIntentJournal::Hold> hold;
    if (isActing) {
        const auto begun = body_->begin();
        if (!begun) return std::unexpected(begun.error());
        ledger = *begun;
        // Whoever tidies up meanwhile would take the plan for one that nobody needs.
        auto held = body_->journal->hold();
        if (!held) {
            return sessionError(CleanupExecutionError::fromBegin(held.error()));
        }
        hold.emplace(*std::move(held));
        if (const auto kept = body_->keepPlan(prepared); !kept) return sessionError(kept.error());
    }
    auto receipt = body_->executor(prepared.plan.mode, *ledger)
                       .execute({.plan = prepared.plan,
                                 .sheet = &prepared.sheet,
                                 .approval = approval.approval,
                                 .acknowledgement = approval.acknowledgement,
                                 .at = body_->options.machine.clock(),
                                 .onProgress = progress,
                                 .cancel = cancel});
    if (isActing) body_->tidyUp();
    if (!receipt) return sessionError(std::move(receipt.error()));
    return *std::move(receipt);
}

CleanupSession::Result<std::vector<CleanupSession::PutBack>>
CleanupSession::putBack(const UUID& receiptID, const std::set<LocalItemID>& items,
                        WhenTaken whenTaken) {
    const auto begun = body_->begin();
    if (!begun) return std::unexpected(begun.error());
    const auto stored = body_->storedReceipts();
    if (!stored) return std::unexpected(stored.error());
    const auto receipt = std::ranges::find(*stored, receiptID, &CleanupReceipt::id);
    if (receipt == stored->end()) return sessionError(Error::UnknownReceipt{});
    const auto hold = body_->journal->hold();
    if (!hold) return sessionError(hold.error());
    const auto intents = body_->journal->allIntents();
    if (!intents) return sessionError(intents.error());
    const CleanupIntent* intent = Body::intentOf(*receipt, intents->intents);
    const auto sheet = body_->sheetOf(receipt->planID);
    std::map<std::string_view, const CleanupIntentEntry*> known;
    if (intent != nullptr) {
        for (const CleanupIntentEntry& entry : intent->entries) {
            known.emplace(entry.candidateID.rawValue, &entry);
        }
    }
    std::map<std::string_view, const CleanupSheetFolder*> folders;
    if (sheet) {
        for (const CleanupSheetFolder& folder : sheet->folders) {
            folders.emplace(folder.url.path(), &folder);
        }
    }
    const TrashRestorer restorer(body_->options.machine.changes, body_->flushes.get(),
                                 body_->options.machine.volumes);
    std::vector<PutBack> done;
    CleanupIntentJournaling::RestoreOutcomes outcomes;
    for (const CleanupReceiptEntry& entry : receipt->entries) {
        if (entry.disposition != CleanupMoveDisposition::movedToTrash || !entry.resultingTrashURL) {
            continue;
        }
        if (!items.empty() && !items.contains(entry.candidateID)) continue;
        const auto planned = known.find(entry.candidateID.rawValue);
        std::expected<void, TrashRestorer::Error> result =
            std::unexpected(TrashRestorer::Error{.kind = TrashRestorer::Error::Kind::anotherItem});
        FileURL url = entry.originalURL;
        if (planned != known.end()) {
            const std::string folder(path::parent(entry.originalURL.path()));
            const auto real = FolderResolver::resolved(folder);
            const auto noted = folders.find(folder);
            TrashRestorer::Item item{.trashURL = *entry.resultingTrashURL,
                                     .originalURL = FileURL::file(path::joined(
                                         real.value_or(folder), entry.originalURL.lastComponent())),
                                     .fingerprint = planned->second->fingerprint,
                                     .folderPermissions = noted != folders.end() && real == folder
                                                              ? noted->second->permissions
                                                              : std::vector<std::uint32_t>{}};
            result = restorer.putBack(item);
            const auto beside = result ? std::nullopt : result.error().beside;
            if (beside && whenTaken == WhenTaken::putBeside) {
                item.originalURL = *beside;
                result = restorer.putBack(item);
                if (result) url = item.originalURL;
            }
            const InterruptedCleanupReport::MovedItem moved{.originalURL = entry.originalURL,
                                                            .trashURL = *entry.resultingTrashURL,
                                                            .intentID = intent->id,
                                                            .candidateID = entry.candidateID};
            if (result) outcomes.restored.push_back(moved);
            const bool isGone =
                !result && result.error().kind == TrashRestorer::Error::Kind::notInTrash;
            const auto& outcome = planned->second->outcome;
            const bool isNew =
                outcome && std::holds_alternative<intent_outcome::MovedToTrash>(outcome->value);
            if (isGone && isNew) outcomes.noLongerInTrash.push_back(moved);
        }
        done.push_back({.candidateID = entry.candidateID,
                        .originalURL = entry.originalURL,
                        .url = url,
                        .done = result});
    }
    const auto recorded = body_->journal->recordRestoreOutcomes(outcomes);
    if (!recorded) return sessionError(recorded.error());
    return done;
}

CleanupSession::Result<TrashEmptyingPlan> CleanupSession::planEmptying() {
    const auto stored = body_->storedReceipts();
    if (!stored) return std::unexpected(stored.error());
    const auto hold = body_->journal->hold();
    if (!hold) return sessionError(hold.error());
    const auto intents = body_->journal->allIntents();
    if (!intents) return sessionError(intents.error());
    std::vector<std::map<LocalItemID, KeptCopy>> keptCopies(stored->size());
    std::vector<TrashEmptyingPlan::Source> sources;
    for (std::size_t i = 0; i < stored->size(); ++i) {
        const CleanupReceipt& receipt = (*stored)[i];
        const CleanupIntent* intent = Body::intentOf(receipt, intents->intents);
        if (intent == nullptr || receipt.movedToTrashByteCount() == 0) continue;
        // Without its sheet nothing tells which of its items are extra copies.
        const auto sheet = body_->sheetOf(receipt.planID);
        if (!sheet) continue;
        for (const CleanupSheetEntry& entry : sheet->entries) {
            if (entry.keptCopy) keptCopies[i].emplace(entry.candidateID, *entry.keptCopy);
        }
        sources.push_back({.receipt = receipt, .intent = *intent, .keptCopies = &keptCopies[i]});
    }
    return TrashEmptyingPlan::make(sources, body_->options.machine.clock());
}

CleanupSession::Result<CleanupReceipt> CleanupSession::emptyTrash(
    const TrashEmptyingPlan& plan, const PermanentCleanupAcknowledgement& told,
    const std::function<void(const TrashEmptier::Progress&)>& progress, const CancelToken& cancel) {
    const auto begun = body_->begin();
    if (!begun) return std::unexpected(begun.error());
    TrashEmptier emptier({.volumes = *body_->options.machine.volumes,
                          .changes = *body_->options.machine.changes,
                          .flushes = *body_->flushes,
                          .journal = *body_->journal,
                          .ledger = **begun});
    auto receipt = emptier.empty({.plan = plan,
                                  .acknowledgement = told,
                                  .at = body_->options.machine.clock(),
                                  .onProgress = progress,
                                  .cancel = cancel});
    body_->tidyUp();
    if (!receipt) return sessionError(std::move(receipt.error()));
    return *std::move(receipt);
}

// What was done ---------------------------------------------------------------------------------

CleanupSession::Result<CleanupHistoryIndex::History> CleanupSession::history() {
    CleanupHistoryIndex index(
        {.ledgerURL = body_->ledgerURL(),
         .journal = body_->journal.get(),
         .storedReceipts =
             [this]() -> std::expected<std::vector<CleanupReceipt>, RecoveryLedgerError> {
             auto stored = body_->storedReceipts();
             if (stored) return *std::move(stored);
             return std::unexpected(std::get<RecoveryLedgerError>(stored.error().value));
         },
         .gate = body_->options.machine.gate});
    auto history = index.history();
    if (history) return *std::move(history);
    return std::visit(
        [](const auto& error) -> Result<CleanupHistoryIndex::History> {
            return sessionError(error);
        },
        history.error());
}

CleanupSession::Result<std::vector<CleanupReceipt>> CleanupSession::receipts() {
    return body_->storedReceipts();
}

CleanupSession::Result<CleanupSettlement::Report> CleanupSession::interrupted() {
    InMemoryRecoveryLedger nowhere;
    auto told = body_->settlement(&nowhere).tell();
    if (!told) return sessionError(told.error());
    return *std::move(told);
}

CleanupSession::Result<CleanupSettlement::Report> CleanupSession::settle() {
    body_->startFlushes();
    const auto ledger = body_->openLedger();
    if (!ledger) return std::unexpected(ledger.error());
    // A person who asks for it waits for a look at what closed cleanups left, too.
    auto settled = body_->settlement(*ledger).settle(CleanupSettlement::Depth::everything);
    if (!settled) return sessionError(settled.error());
    body_->tidyUp();
    return *std::move(settled);
}

} // namespace tidyro
