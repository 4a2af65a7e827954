#include "StorageEngine/Cleanup/Execution/CleanupExecutor.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "StorageEngine/Cleanup/Execution/ExecutionBench.h"
#include "StorageEngine/Cleanup/Execution/MutationIdentityGuard.h"
#include "StorageEngine/Cleanup/Execution/PermanentRemover.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::ExecutionBench;
using testing::outcomes;
using Texts = std::vector<std::string>;
using Mode = CleanupExecutionMode;

constexpr const char* moved = "movedToTrash";
constexpr const char* removed = "permanentlyRemoved";
constexpr const char* changedText = "refused: The item changed after it was reviewed.";

/// The folders that hold items, and what is in them.
std::string everything(const ExecutionBench& bench) {
    return bench.names("home/.npm/_cacache") + " | " + bench.names("opened") + " | " +
           bench.trashed() + " | " + bench.notes();
}

TEST(CleanupExecutor, MovesToTheTrashAndTellsWhere) {
    ExecutionBench bench;
    bench.planFiles({"one", "two"});
    std::vector<std::size_t> completed;
    const auto receipt =
        bench.executor().execute({.plan = bench.plan,
                                  .sheet = &bench.sheet,
                                  .approval = bench.approval,
                                  .at = bench.now,
                                  .onProgress = [&](const CleanupExecutor::Progress& progress) {
                                      completed.push_back(progress.itemsCompleted);
                                  }});
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(outcomes(*receipt), (Texts{moved, moved}));
    EXPECT_EQ(completed, (std::vector<std::size_t>{1, 2}));
    EXPECT_EQ(receipt->actuallyReclaimedByteCount, 0) << "a Trash that is full frees nothing";
    EXPECT_EQ(receipt->retainUntil, bench.now.adding(90 * CleanupExecutor::day));
    EXPECT_EQ(bench.trashed(), "one two");
    EXPECT_EQ(bench.notes(), "one.trashinfo two.trashinfo");
    EXPECT_EQ(receipt->entries[1].resultingTrashURL->path(),
              bench.place / "home/.local/share/Trash/files/two");
    EXPECT_EQ(bench.memory.storedReceipts().size(), 1);
    EXPECT_TRUE(bench.journal->openIntents()->intents.empty());
}

TEST(CleanupExecutor, RemovesForGoodAndLeavesNothingBehind) {
    ExecutionBench bench;
    bench.place.file("home/.npm/_cacache/linked", std::string(9'000, 'x'));
    bench.place.hardLink("home/other name", "home/.npm/_cacache/linked");
    bench.place.noise("home/.npm/_cacache/deep/er/large", 100'000);
    bench.planFiles({"one", "linked", "deep/er/large", "deep/small"}, Mode::permanent);
    const auto receipt = bench.execute();
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(outcomes(*receipt), (Texts{removed, removed, removed, removed}));
    EXPECT_EQ(bench.names("home/.npm/_cacache"), "deep");
    EXPECT_EQ(bench.names("home/.npm/_cacache/deep"), "er") << "no folder of ours stays";
    EXPECT_EQ(bench.names("home/.npm/_cacache/deep/er"), "");
    EXPECT_EQ(bench.trashed(), "");
    const std::uint64_t freed = receipt->actuallyReclaimedByteCount.value_or(0);
    EXPECT_GE(freed, 100'000);
    EXPECT_LT(freed, 125'000) << "the linked file is not gone";
    EXPECT_EQ(bench.contents("home/other name").size(), 9'000);
}

TEST(CleanupExecutor, TouchesNothingWithoutAPlanAnApprovalAndAnAcknowledgementThatFit) {
    using Cases = CleanupExecutionError;
    struct Row {
        const char* what;
        std::function<void(ExecutionBench&)> change;
        std::function<bool(const CleanupExecutionError&)> isExpected;
    };
    const auto is = []<class Case>(Case) {
        return [](const CleanupExecutionError& error) {
            return std::holds_alternative<Case>(error.value);
        };
    };
    const auto badAcknowledgement = is(Cases::PermanentAcknowledgementDoesNotMatchPlan{});
    const auto badTime = is(Cases::InvalidApprovalTimestamp{});
    const auto badPlan = is(Cases::InvalidPlan{});
    const std::vector<Row> rows{
        {"no acknowledgement", [](auto& bench) { bench.acknowledgement.reset(); },
         is(Cases::MissingPermanentAcknowledgement{})},
        {"other plan", [](auto& bench) { bench.acknowledgement->planID = UUID(); },
         badAcknowledgement},
        {"other count", [](auto& bench) { ++bench.acknowledgement->itemCount; },
         badAcknowledgement},
        {"other size", [](auto& bench) { ++bench.acknowledgement->byteCount; }, badAcknowledgement},
        {"before the plan",
         [](auto& bench) { bench.acknowledgement->acknowledgedAt = bench.planned.adding(-1); },
         badAcknowledgement},
        {"one to review",
         [](auto& bench) { bench.plan.entries[1].proofCard.riskTier = RiskTier::reviewCarefully; },
         is(Cases::PermanentCleanupRefusedItem{})},
        {"one twice", [](auto& bench) { bench.plan.entries[1] = bench.plan.entries[0]; }, badPlan},
        {"sheet of others",
         [](auto& bench) { std::swap(bench.sheet.entries[0], bench.sheet.entries[1]); }, badPlan},
        {"approval of another plan", [](auto& bench) { bench.approval.planID = UUID(); },
         is(Cases::ApprovalForDifferentPlan{})},
        {"approved after now", [](auto& bench) { bench.approval.approvedAt = bench.now.adding(1); },
         badTime},
        {"approved before the plan",
         [](auto& bench) { bench.approval.approvedAt = bench.planned.adding(-1); }, badTime},
        {"approved when it expired",
         [](auto& bench) { bench.plan.expiresAt = bench.approval.approvedAt; }, badTime},
        {"one too many",
         [](auto& bench) { bench.approval.approvedCandidateIDs.insert({"another"}); },
         is(Cases::ApprovalDoesNotMatchPlan{})},
        {"one too few",
         [](auto& bench) {
             bench.approval.approvedCandidateIDs.erase(bench.plan.entries[0].candidateID);
         },
         is(Cases::ApprovalDoesNotMatchPlan{})},
        {"one to be approved by itself",
         [](auto& bench) {
             bench.plan.entries[1].approvalRequirement = ApprovalRequirement::itemLevel;
         },
         is(Cases::MissingItemLevelApproval{})},
        {"all changed",
         [](auto& bench) {
             bench.place.file(bench.cached("one"), "a");
             bench.place.file(bench.cached("two"), "b");
         },
         is(Cases::RevalidationFailed{})},
    };
    for (const Row& row : rows) {
        ExecutionBench bench;
        bench.planFiles({"one", "two"}, Mode::permanent);
        row.change(bench);
        const std::string before = everything(bench);
        const auto told = bench.execute();
        ASSERT_FALSE(told) << row.what;
        EXPECT_TRUE(row.isExpected(told.error())) << row.what << ": " << told.error().description();
        EXPECT_EQ(told.error().receipt(), nullptr);
        EXPECT_EQ(everything(bench), before) << row.what;
        EXPECT_TRUE(bench.journal->openIntents()->intents.empty()) << row.what;
    }
    ExecutionBench bench;
    bench.planFiles({"one"});
    const auto told =
        bench.executor(Mode::permanent)
            .execute({.plan = bench.plan, .approval = bench.approval, .at = bench.now});
    EXPECT_EQ(told.error().description(),
              "This list was prepared to remove items for good, but Tidyro tried to move items to "
              "the Trash instead. Nothing was touched. Start the cleanup again.");
}

/// Does something right before the k-th change of the kind that a test waits for.
void beforeRename(ExecutionBench& bench, int which, std::function<void()> act) {
    bench.changes.beforeRename = [which, act = std::move(act), seen = 0]() mutable {
        if (++seen == which) act();
    };
}

TEST(CleanupExecutor, LeavesWhatIsNotThePlannedItemAnyMore) {
    struct Row {
        const char* what;
        std::function<void(ExecutionBench&)> happens; ///< right before the second item's turn
        const char* told;
    };
    const auto exchange = [](ExecutionBench& bench) {
        fs::rename(bench.place / "home/.npm/_cacache/two", bench.place / "aside");
    };
    const std::vector<Row> rows{
        {"other contents",
         [](auto& bench) { bench.place.file("home/.npm/_cacache/two", "CONTENTS OF TWO!"); },
         changedText},
        {"same size and date, another file",
         [&](auto& bench) {
             exchange(bench);
             bench.place.file("home/.npm/_cacache/two", "contents of two");
             fs::last_write_time(bench.place / "home/.npm/_cacache/two",
                                 fs::last_write_time(bench.place / "aside"));
         },
         changedText},
        {"changed and dated back",
         [](auto& bench) {
             const std::string path = bench.place / "home/.npm/_cacache/two";
             const auto date = fs::last_write_time(path);
             bench.place.file("home/.npm/_cacache/two", "CONTENTS OF TWO");
             fs::last_write_time(path, date);
         },
         changedText},
        {"a link",
         [&](auto& bench) {
             exchange(bench);
             bench.place.link("home/.npm/_cacache/two", "../../../aside");
         },
         "refused: The item was no longer an ordinary file."},
        {"a folder",
         [&](auto& bench) {
             exchange(bench);
             bench.place.folder("home/.npm/_cacache/two");
         },
         "refused: The item was no longer an ordinary file."},
        {"gone", exchange, "refused: The item was gone before it could be moved."},
        {"its folder is a link",
         [](auto& bench) {
             fs::rename(bench.place / "home/.npm/_cacache", bench.place / "cache");
             bench.place.link("home/.npm/_cacache", "../../cache");
         },
         "refused: The item was outside the folder that authorized it."},
    };
    for (const Mode mode : {Mode::recoverable, Mode::permanent, Mode::simulation}) {
        for (const Row& row : rows) {
            ExecutionBench bench;
            bench.planFiles({"one", "two", "three"}, mode);
            struct Passing final : PlanRevalidator {
                std::function<void()> afterwards;
                std::expected<PlanRevalidationReport, CancellationError>
                revalidate(const CleanupPlan& plan, Timestamp at, const Scope&) override {
                    PlanRevalidationReport report{
                        .planID = plan.id, .checkedAt = at, .entries = {}};
                    for (const auto& entry : plan.entries) {
                        report.entries.push_back({.candidateID = entry.candidateID});
                    }
                    afterwards();
                    return report;
                }
            } passing;
            passing.afterwards = [&] { row.happens(bench); };
            bench.revalidator = &passing;
            const auto receipt = bench.execute();
            ASSERT_TRUE(receipt) << row.what << receipt.error().description();
            EXPECT_EQ(outcomes(*receipt)[1], row.told) << row.what;
            EXPECT_FALSE(bench.isThere("home/.local/share/Trash/files/two")) << row.what;
            EXPECT_EQ(bench.isThere("home/.npm/_cacache/two"), row.what != std::string("gone"))
                << row.what;
            EXPECT_TRUE(bench.journal->openIntents()->intents.empty());
        }
    }
}

TEST(CleanupExecutor, PutsBackAStrangerThatItMoved) {
    for (const Mode mode : {Mode::recoverable, Mode::permanent}) {
        ExecutionBench bench;
        bench.planFiles({"one", "two"}, mode);
        // In the very moment of the rename somebody saves the file anew.
        beforeRename(bench, 1, [&] {
            bench.place.file("home/.npm/_cacache/new", "a new file");
            fs::rename(bench.place / "home/.npm/_cacache/new",
                       bench.place / "home/.npm/_cacache/one");
        });
        const auto receipt = bench.execute();
        ASSERT_TRUE(receipt) << receipt.error().description();
        EXPECT_EQ(outcomes(*receipt)[0], changedText);
        EXPECT_EQ(bench.contents("home/.npm/_cacache/one"), "a new file");
        EXPECT_EQ(bench.names("home/.npm/_cacache"), "one") << "and two has gone";
    }
}

TEST(CleanupExecutor, TellsWhereAStrangerLiesThatCannotGoBack) {
    for (const Mode mode : {Mode::recoverable, Mode::permanent}) {
        ExecutionBench bench;
        bench.planFiles({"one", "two"}, mode);
        const auto save = [&](const char* text) {
            bench.place.file("home/.npm/_cacache/new", text);
            fs::rename(bench.place / "home/.npm/_cacache/new",
                       bench.place / "home/.npm/_cacache/one");
        };
        // Somebody saves the file anew before it is moved, and once more before it goes back.
        beforeRename(bench, 1, [&] { save("a new file"); });
        bench.changes.afterRename = [&, seen = 0]() mutable {
            if (++seen == 1) save("an even newer file");
        };
        const auto receipt = bench.execute();
        ASSERT_TRUE(receipt) << receipt.error().description();
        EXPECT_EQ(outcomes(*receipt)[0],
                  "failed: The item changed after it was reviewed. What had its name in that "
                  "moment could not go back and lies at " +
                      (bench.place / "home/.local/share/Trash/files/one") + ".");
        EXPECT_EQ(bench.contents("home/.npm/_cacache/one"), "an even newer file");
        EXPECT_EQ(bench.contents("home/.local/share/Trash/files/one"), "a new file");
        EXPECT_TRUE(bench.isThere("home/.local/share/Trash/info/one.trashinfo"));
        EXPECT_EQ(bench.names("home/.npm/_cacache"), "one");
    }
}

TEST(CleanupExecutor, StopsWhenItIsAskedTo) {
    for (const Mode mode : {Mode::recoverable, Mode::permanent}) {
        ExecutionBench bench;
        bench.planFiles({"one", "two", "three"}, mode);
        std::stop_source source;
        beforeRename(bench, 2, [&] { source.request_stop(); });
        const auto told = bench.execute(source.get_token());
        ASSERT_FALSE(told);
        const auto* receipt = told.error().receipt();
        ASSERT_NE(receipt, nullptr);
        const std::string rest = "refused: The cleanup stopped before it reached this item.";
        if (mode == Mode::recoverable) {
            EXPECT_EQ(outcomes(*receipt), (Texts{moved, moved, rest}));
            EXPECT_EQ(told.error().description(),
                      "The cleanup was stopped partway through. 2 items were already moved to the "
                      "Trash before it stopped. The rest were left untouched.");
        } else {
            const std::string stopped =
                "failed: The item could not be removed: the cleanup stopped";
            EXPECT_EQ(outcomes(*receipt), (Texts{stopped, stopped, rest}));
            EXPECT_EQ(bench.names("home/.npm/_cacache"), "one three two") << "they went back";
            EXPECT_EQ(told.error().description(),
                      "The cleanup was stopped before anything was touched.");
        }
        EXPECT_EQ(bench.memory.storedReceipts().size(), 1);
        EXPECT_TRUE(bench.journal->openIntents()->intents.empty());
    }
}

TEST(CleanupExecutor, AsksTheRestAgainAfterAMinute) {
    struct Clocked final : PlanRevalidator {
        double* clock = nullptr;
        std::size_t failingLater = 0;
        std::vector<std::size_t> firsts;
        std::expected<PlanRevalidationReport, CancellationError>
        revalidate(const CleanupPlan& plan, Timestamp at, const Scope& scope) override {
            firsts.push_back(scope.firstEntry);
            PlanRevalidationReport report{.planID = plan.id, .checkedAt = at, .entries = {}};
            for (std::size_t i = scope.firstEntry; i < plan.entries.size(); ++i) {
                const bool isBad = scope.firstEntry > 0 && i < scope.firstEntry + failingLater;
                report.entries.push_back(
                    {.candidateID = plan.entries[i].candidateID,
                     .issue =
                         isBad ? std::optional(RevalidationIssue::inUseByProcess) : std::nullopt});
            }
            return report;
        }
    };
    for (const bool isTooMuch : {false, true}) {
        ExecutionBench bench;
        bench.clock = 100;
        bench.planFiles({"a", "b", "c", "d", "e"});
        Clocked clocked;
        clocked.failingLater = isTooMuch ? 3 : 2;
        bench.revalidator = &clocked;
        beforeRename(bench, 1, [&] { *bench.clock += 61; });
        const auto told = bench.execute();
        EXPECT_EQ(clocked.firsts, (std::vector<std::size_t>{0, 1}));
        if (!isTooMuch) {
            const std::string issue = "refused: The final safety check did not pass.";
            ASSERT_TRUE(told) << told.error().description();
            EXPECT_EQ(outcomes(*told), (Texts{moved, issue, issue, moved, moved}));
        } else {
            ASSERT_FALSE(told);
            EXPECT_EQ(told.error().description(),
                      "Too much of the rest of the list no longer matched what's on disk. 1 item "
                      "was already moved to the Trash before that happened, and the rest were left "
                      "untouched. Scan again to review what's left.");
            EXPECT_EQ(bench.trashed(), "a");
        }
    }
}

TEST(CleanupExecutor, EndsWhenTheJournalOrTheLedgerFails) {
    using Cases = CleanupExecutionError;
    for (const Mode mode : {Mode::recoverable, Mode::permanent}) {
        ExecutionBench bench;
        bench.planFiles({"one"}, mode);
        bench.journal.reset();
        const auto told = bench.execute();
        ASSERT_FALSE(told);
        EXPECT_EQ(told.error().description(),
                  "Tidyro could not open its safety log, so it stopped before touching anything.");
        EXPECT_TRUE(bench.isThere("home/.npm/_cacache/one"));
    }
    struct Refusing final : RecoveryLedger {
        std::expected<void, Error> append(const CleanupReceipt&) override {
            return std::unexpected(Error{.kind = Error::Kind::unwritable, .cause = {ENOSPC}});
        }
        std::expected<std::vector<CleanupReceipt>, Error> receipts(Timestamp) override {
            return std::vector<CleanupReceipt>{};
        }
    } refusing;
    ExecutionBench bench;
    bench.ledger = &refusing;
    bench.planFiles({"one", "two"});
    const auto told = bench.execute();
    ASSERT_FALSE(told);
    EXPECT_TRUE(std::holds_alternative<Cases::ReceiptPersistenceFailed>(told.error().value));
    EXPECT_TRUE(told.error().description().starts_with(
        "2 moved to the Trash, but Tidyro could not save the record of what it moved."));
    const auto open = bench.journal->openIntents();
    ASSERT_EQ(open->intents.size(), 1) << "the journal takes the receipt's place";
    EXPECT_TRUE(open->intents.front().isReceiptMissing);

    ExecutionBench permanent;
    permanent.ledger = &refusing;
    permanent.planFiles({"one", "two"}, Mode::permanent);
    std::stop_source stopped;
    beforeRename(permanent, 1, [&] { stopped.request_stop(); });
    const auto nothing = permanent.execute(stopped.get_token());
    ASSERT_FALSE(nothing);
    ASSERT_EQ(permanent.names("home/.npm/_cacache"), "one two");
    EXPECT_TRUE(nothing.error().description().starts_with("0 removed for good, but"))
        << nothing.error().description();
}

TEST(CleanupExecutor, SaysThatAnotherCleanupRuns) {
    ExecutionBench bench;
    bench.planFiles({"one"});
    FileCleanupIntentJournal other(bench.journal->folder(), {.reserveByteCount = 0});
    const auto hold = other.hold();
    ASSERT_TRUE(hold);
    const auto told = bench.execute();
    ASSERT_FALSE(told);
    EXPECT_EQ(told.error().description(),
              "Another cleanup is running, so this one was not started and nothing was touched. "
              "Try again when it has ended.");
    EXPECT_EQ(bench.names("home/.npm/_cacache"), "one");
}

TEST(CleanupExecutor, RemovesNothingMoreOnceTheJournalFailed) {
    std::size_t stoppedCount = 0;
    for (std::uint64_t at = 1;; ++at) {
        ExecutionBench bench(nullptr,
                             {.at = at, .how = testing::ChangeSchedule::Disturbance::failure});
        bench.planFiles({"one", "two", "three"}, Mode::permanent);
        // When all are set aside, the first one is touched, so that it has to go back.
        std::size_t renames = 0;
        bench.changes.afterRename = [&] {
            const fs::path cache = bench.place / "home/.npm/_cacache";
            if (++renames != 3) return;
            for (const auto& each : fs::directory_iterator(cache)) {
                if (!each.is_directory()) continue;
                fs::permissions(each.path() / "one", fs::perms::owner_read);
            }
        };
        const auto told = bench.execute();
        if (bench.schedule.count() < at) break;
        if (told ||
            !std::holds_alternative<CleanupExecutionError::JournalStopped>(told.error().value)) {
            continue;
        }
        // Where the log does not know that the first one stays, the others have to stay as well.
        const auto intents = bench.journal->allIntents();
        if (!intents || intents->intents.empty()) continue;
        const auto& known = intents->intents[0].intent.entries[0].outcome;
        const bool isUnknown =
            known && std::holds_alternative<intent_outcome::PermanentlyRemoved>(known->value);
        if (!isUnknown || !outcomes(*told.error().receipt())[0].starts_with("failed")) continue;
        ++stoppedCount;
        EXPECT_EQ(bench.names("home/.npm/_cacache"), "one three two") << at;
    }
    EXPECT_GE(stoppedCount, 1U);
}

TEST(SystemPermanentRemover, TakesTwoPathsToOneFolderForOneFolder) {
    ExecutionBench bench;
    bench.place.folder("home/.npm/_cacache/real");
    bench.planFiles({"real/one", "real/two", "real/three"}, Mode::permanent);
    platform::Trash trash({.volumes = &bench.volumes,
                           .changes = &bench.changes,
                           .flushes = &bench.flushes,
                           .home = FileURL::folder(bench.place / "home/.local/share/Trash")});
    SystemPermanentRemover remover({.intentID = platform::randomUUID(),
                                    .changes = bench.changes,
                                    .flushes = bench.flushes,
                                    .trash = trash,
                                    .giveSpaceBack = [] { return false; }});
    MutationIdentityGuard guard(bench.volumes);
    // As a file system that folds names has it, "REAL" leads to the same folder.
    std::vector<FileURL> written;
    for (const char* name : {"REAL/one", "real/two", "REAL/three"}) {
        written.push_back(FileURL::file(bench.place / ExecutionBench::cached(name)));
        remover.expect(written.back());
    }
    const auto setAside = [&](std::size_t index) {
        const CleanupPlanEntry& entry = bench.plan.entries[index];
        auto item = guard.look({.source = entry.sourceURL,
                                .fingerprint = entry.fingerprint,
                                .authorizedRoot = bench.home().appendingFolder(".npm/_cacache"),
                                .sheet = &bench.sheet.entries[index],
                                .plannedAt = bench.plan.createdAt,
                                .accepts = MutationIdentityGuard::Accepts::regularFiles});
        EXPECT_TRUE(item);
        auto aside = remover.setAside(written[index], *std::move(item));
        remover.forget(written[index]);
        return aside;
    };
    auto one = setAside(0);
    auto two = setAside(1);
    ASSERT_TRUE(one && two);
    EXPECT_TRUE(remover.remove(*std::move(one)));
    EXPECT_TRUE(remover.remove(*std::move(two))) << "whose private folder the third one needs";
    auto three = setAside(2);
    ASSERT_TRUE(three) << three.error().receiptDescription();
    EXPECT_TRUE(remover.remove(*std::move(three)));
}

TEST(CleanupExecutor, MovesPickedItemsOnlyAsTheyWereLookedThrough) {
    ExecutionBench bench;
    bench.place.file("opened/folder/sub/file", "inside");
    bench.place.file("opened/other/file", "inside");
    bench.place.file("opened/single", "a file");
    bench.planItems({"opened/folder", "opened/other", "opened/single"});
    // A file is put into the second folder when its turn comes.
    beforeRename(bench, 1, [&] {
        bench.place.file("opened/other/sub/later", "later");
        fs::last_write_time(bench.place / "opened/other/sub/later",
                            fs::file_time_type::clock::now() + std::chrono::hours(24 * 400));
    });
    const auto receipt = bench.execute();
    ASSERT_TRUE(receipt) << receipt.error().description();
    const auto told = outcomes(*receipt);
    EXPECT_EQ(told[0], moved);
    EXPECT_TRUE(told[1].starts_with("refused: ")) << told[1];
    EXPECT_EQ(told[2], moved);
    EXPECT_EQ(bench.trashed(), "folder single");
    EXPECT_EQ(bench.contents("home/.local/share/Trash/files/folder/sub/file"), "inside");
    EXPECT_EQ(bench.names("opened"), "other");
    EXPECT_TRUE(bench.isThere("home/.local/share/Trash/directorysizes"));
}

TEST(CleanupExecutor, LeavesAnExtraCopyWithoutTheCopyThatIsKept) {
    struct Row {
        const char* what;
        std::function<void(ExecutionBench&)> change;
        bool goes;
    };
    const std::vector<Row> rows{
        {"it is there", [](auto&) {}, true},
        {"nobody noted it", [](auto& bench) { bench.sheet.entries[0].keptCopy.reset(); }, false},
        {"it is gone", [](auto& bench) { fs::remove(bench.place / "opened/kept"); }, false},
        {"it changed", [](auto& bench) { bench.place.file("opened/kept", "OTHER"); }, false},
        {"its status changed", [](auto& bench) { bench.place.permissions("opened/kept", 0600); },
         false},
    };
    for (const Row& row : rows) {
        ExecutionBench bench;
        bench.place.file("opened/kept", "equal");
        bench.place.file("opened/extra", "equal");
        bench.planItems({"opened/extra"});
        bench.plan.entries[0].proofCard.category = CleanupCategory::exactDuplicate;
        const auto kept = FileIdentity::observation(FileURL::file(bench.place / "opened/kept"),
                                                    bench.home(), bench.volumes);
        bench.sheet.entries[0].keptCopy =
            CleanupSheetMaker::keptCopy(kept->url, FileFingerprint::fromObservation(*kept));
        row.change(bench);
        const auto receipt = bench.execute();
        ASSERT_TRUE(receipt) << row.what << receipt.error().description();
        EXPECT_EQ(bench.isThere("opened/extra"), !row.goes)
            << row.what << ": " << outcomes(*receipt)[0];
    }
}

TEST(CleanupExecutor, SimulatesWithoutAChange) {
    ExecutionBench bench;
    bench.planFiles({"one", "two"}, Mode::simulation);
    const auto receipt = bench.execute();
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(outcomes(*receipt), (Texts{"simulated", "simulated"}));
    EXPECT_EQ(receipt->actuallyReclaimedByteCount, std::nullopt);
    EXPECT_EQ(bench.schedule.count(), 0) << "changes";
    EXPECT_EQ(bench.names("home/.local/share"), "");
    EXPECT_EQ(bench.names("home/.npm/_cacache"), "one two");
}

TEST(CleanupExecutor, LeavesAFolderInWhichSomethingIsMounted) {
    ExecutionBench bench;
    const auto told = testing::inMountNamespace([&] {
        bench.volumes = platform::testing::FakeVolumes::withOneAt(bench.place.path());
        bench.place.file("opened/folder/sub/file", "inside");
        bench.place.folder("elsewhere");
        bench.planItems({"opened/folder"});
        struct Passing final : PlanRevalidator {
            std::expected<PlanRevalidationReport, CancellationError>
            revalidate(const CleanupPlan& plan, Timestamp at, const Scope&) override {
                return PlanRevalidationReport{
                    .planID = plan.id,
                    .checkedAt = at,
                    .entries = {{.candidateID = plan.entries[0].candidateID}}};
            }
        } passing;
        bench.revalidator = &passing;
        if (!testing::bindMount(bench.place / "elsewhere", bench.place / "opened/folder/sub")) {
            return std::string("not mounted");
        }
        const auto receipt = bench.execute();
        return receipt ? outcomes(*receipt)[0] : receipt.error().description();
    });
    if (!told || *told == "not mounted") GTEST_SKIP() << "mounts need root";
    EXPECT_TRUE(told->starts_with("refused: ")) << *told;
}

TEST(CleanupExecutor, TakesSeveralNamesOfOneFileInOneRun) {
    for (const Mode mode : {Mode::recoverable, Mode::permanent}) {
        ExecutionBench bench;
        bench.place.noise("home/.npm/_cacache/a", 100'000);
        bench.place.hardLink("home/.npm/_cacache/b", "home/.npm/_cacache/a");
        bench.place.folder("home/.npm/_cacache/deep");
        bench.place.hardLink("home/.npm/_cacache/deep/c", "home/.npm/_cacache/a");
        bench.planFiles({"a", "other", "b", "deep/c"}, mode);
        const auto receipt = bench.execute();
        ASSERT_TRUE(receipt) << receipt.error().description();
        const char* const done = mode == Mode::permanent ? removed : moved;
        EXPECT_EQ(outcomes(*receipt), (Texts{done, done, done, done}));
        EXPECT_EQ(bench.names("home/.npm/_cacache"), "deep");
        if (mode == Mode::permanent) {
            EXPECT_GE(receipt->actuallyReclaimedByteCount.value_or(0), 100'000)
                << "with the last name its blocks are free";
        }
    }
}

TEST(CleanupExecutor, RemovesItsPrivateFoldersBeforeTheCleanupIsClosed) {
    ExecutionBench bench;
    bench.planFiles({"one", "two", "three"}, Mode::permanent);
    std::stop_source source;
    beforeRename(bench, 2, [&] { source.request_stop(); });
    bool isClosed = false;
    bench.changes.beforeEach = [&] {
        const fs::path intents = bench.place / "home/.local/share/Harborline/intents";
        for (const auto& entry : fs::directory_iterator(intents)) {
            if (entry.path().extension() != ".outcomes") continue;
            std::ifstream file(entry.path());
            const std::string log{std::istreambuf_iterator<char>(file), {}};
            isClosed = isClosed || log.find("closed") != std::string::npos;
        }
    };
    ASSERT_FALSE(bench.execute(source.get_token()));
    EXPECT_FALSE(isClosed) << "something was changed after the cleanup was over";
    EXPECT_EQ(bench.names("home/.npm/_cacache"), "one three two");
}

TEST(CleanupExecutor, DoesNotSayThatNothingWasTouchedWhenSomethingLiesElsewhere) {
    ExecutionBench bench;
    bench.planFiles({"one", "two", "three"}, Mode::permanent);
    std::stop_source source;
    beforeRename(bench, 2, [&] {
        source.request_stop();
        bench.place.file("home/.npm/_cacache/one", "made anew while it was set aside");
    });
    const auto told = bench.execute(source.get_token());
    ASSERT_FALSE(told);
    EXPECT_EQ(bench.contents("home/.local/share/Trash/files/one"), "contents of one");
    EXPECT_EQ(told.error().description(),
              "The cleanup was stopped before any item was done. Nothing was touched, except for "
              "what the receipt tells of items that failed.");
}

TEST(CleanupExecutor, LeavesWhatTheFirstCheckRefusedHoweverLongItTakes) {
    struct Forgetful final : PlanRevalidator {
        std::expected<PlanRevalidationReport, CancellationError>
        revalidate(const CleanupPlan& plan, Timestamp at, const Scope& scope) override {
            PlanRevalidationReport report{.planID = plan.id, .checkedAt = at, .entries = {}};
            for (std::size_t i = scope.firstEntry; i < plan.entries.size(); ++i) {
                const bool isBad = scope.firstEntry == 0 && i == 2;
                report.entries.push_back(
                    {.candidateID = plan.entries[i].candidateID,
                     .issue =
                         isBad ? std::optional(RevalidationIssue::protectedEntry) : std::nullopt});
            }
            return report;
        }
    } forgetful;
    ExecutionBench bench;
    bench.clock = 100;
    bench.planFiles({"a", "b", "c"});
    bench.revalidator = &forgetful;
    beforeRename(bench, 1, [&] { *bench.clock += 61; });
    const auto receipt = bench.execute();
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(outcomes(*receipt),
              (Texts{moved, moved, "refused: The final safety check did not pass."}));
}

} // namespace
} // namespace tidyro
