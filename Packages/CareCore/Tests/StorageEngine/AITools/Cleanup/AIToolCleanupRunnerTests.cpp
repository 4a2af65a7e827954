#include "StorageEngine/AITools/Cleanup/AIToolCleanupRunner.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/Testing/ForwardedFolderChanges.h"
#include "ToolHomes.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::ToolHomes;
using Mode = CleanupExecutionMode;
using enum CleanupMoveDisposition;

struct Cleaning : ToolHomes {
    std::unique_ptr<Program> program;
    AIToolCleanupManifest manifest;

    void prepare(Mode mode = Mode::recoverable) {
        program = std::make_unique<Program>(*this);
        const AIToolAuditReport report = program->report(0, now);
        auto selection = AIToolCleanupSelection::recommended(report);
        selection.disposableMode = mode;
        manifest = AIToolCleanupRunner::makeManifest(report, selection, now).value();
    }
    [[nodiscard]] AIToolCleanupOutcome outcome() const {
        return program->execute(manifest, now).value();
    }
    [[nodiscard]] std::string error(Timestamp at) const {
        const auto done = program->execute(manifest, at);
        return done ? "carried out" : std::string(description(done.error()));
    }
    [[nodiscard]] std::string
    errorOf(const std::function<void(AIToolCleanupApproval&)>& change) const {
        auto approval = AIToolCleanupApproval::approve(manifest, now);
        change(approval);
        const auto done = program->runner.execute(
            {.manifest = manifest, .approval = approval, .toolBytesBefore = 0, .at = now});
        return done ? "carried out" : std::string(description(done.error()));
    }
    /// What is told of an item.
    [[nodiscard]] static std::string reason(const AIToolCleanupOutcome& outcome,
                                            std::string_view name) {
        for (const auto& line : outcome.lines) {
            if (!line.path.ends_with(name)) continue;
            return line.disposition == refused ? line.reason.value_or("") : "not refused";
        }
        return "no line";
    }
};

constexpr auto expired =
    "This list is more than ten minutes old, so nothing was touched. Audit again to get a current "
    "list.";
constexpr auto mismatch =
    "The confirmation does not match the list on screen, so nothing was touched. Review the list "
    "and confirm again.";
constexpr auto changed =
    "The tool's folder is no longer the one Tidyro audited, so nothing was touched. Audit again.";

TEST(AIToolCleanupRunner, MovesToTheTrashAndEverythingCanBePutBack) {
    Cleaning made;
    made.place.permissions("home/.codex/.tmp/git-aBcDeF/objects/aa", 0750);
    const auto before = made.files("home/.codex");
    made.prepare();
    std::size_t told = 0;
    const auto approval = AIToolCleanupApproval::approve(made.manifest, made.now);
    const auto outcome = made.program->runner.execute(
        {.manifest = made.manifest,
         .approval = approval,
         .toolBytesBefore = 1'000,
         .at = made.now,
         .onProgress = [&](const CleanupExecutor::Progress& now) { told = now.itemsCompleted; }});
    ASSERT_TRUE(outcome) << description(outcome.error());
    EXPECT_FALSE(outcome->stopReason) << *outcome->stopReason;
    EXPECT_EQ(outcome->completedCount(), 4);
    EXPECT_EQ(told, 4);
    EXPECT_EQ(outcome->movedToTrashByteCount(), made.manifest.byteCount());
    EXPECT_EQ(outcome->refusedCount() + outcome->failedCount() + outcome->untouchedCount(), 0);
    // "git-aBcDeF" with "objects" and its two, and "codex_apps_tools".
    EXPECT_EQ(outcome->removedEmptyFolderCount, 5);
    EXPECT_TRUE(fs::exists(made.place / "home/.codex/.tmp")) << "a root of a rule stays";
    EXPECT_TRUE(fs::exists(made.place / "home/.codex/cache"));
    EXPECT_FALSE(fs::exists(made.place / "home/.codex/.tmp/git-aBcDeF"));
    EXPECT_EQ(made.contents("home/.codex/auth.json"), "{\"token\":1}");
    std::uint64_t left = 0;
    for (const auto& [name, contents] : made.files("home/.codex")) left += contents.size();
    EXPECT_EQ(outcome->toolBytesAfter, left);

    ASSERT_EQ(outcome->receipts.size(), 1);
    const auto back = made.program->session.putBack(outcome->receipts[0].id);
    ASSERT_TRUE(back) << back.error().description();
    for (const auto& item : *back) EXPECT_TRUE(item.done) << item.done.error().description();
    EXPECT_EQ(made.files("home/.codex"), before);
    const auto mode = fs::status(made.place / "home/.codex/.tmp/git-aBcDeF/objects/aa");
    EXPECT_EQ(static_cast<unsigned>(mode.permissions()), 0750U) << "as it was noted";
}

TEST(AIToolCleanupRunner, RemovesForGoodOrOnlyTries) {
    for (const Mode mode : {Mode::simulation, Mode::permanent}) {
        Cleaning made;
        const auto before = made.files("home");
        made.prepare(mode);
        const auto outcome = made.outcome();
        EXPECT_EQ(outcome.completedCount(), 4) << outcome.stopReason.value_or("");
        if (mode == Mode::simulation) {
            EXPECT_EQ(made.files("home"), before);
            EXPECT_EQ(outcome.removedEmptyFolderCount, 0);
        } else {
            EXPECT_EQ(outcome.permanentlyRemovedByteCount(), made.manifest.byteCount());
            EXPECT_EQ(outcome.removedEmptyFolderCount, 5);
            EXPECT_FALSE(fs::exists(made.place / "home/.codex/.tmp/git-aBcDeF"));
        }
    }
}

TEST(AIToolCleanupRunner, MovesReviewedGeneratedWorkInAPlanOfItsOwn) {
    Cleaning made;
    made.prepare();
    const AIToolAuditReport report = made.program->report(0, made.now);
    auto selection = AIToolCleanupSelection::recommended(report);
    for (const auto& finding : report.ruleFindings) {
        if (finding.group != AIToolArtifactGroup::generatedWork) continue;
        for (const auto& item : finding.artifacts) {
            selection.reviewedGeneratedKeys.insert(finding.key(item));
        }
    }
    selection.disposableMode = Mode::permanent;
    made.manifest = AIToolCleanupRunner::makeManifest(report, selection, made.now).value();
    const auto outcome = made.outcome();
    EXPECT_EQ(outcome.receipts.size(), 2);
    EXPECT_EQ(outcome.lines.back().disposition, movedToTrash);
    EXPECT_EQ(outcome.lines.front().disposition, permanentlyRemoved);
    made.manifest.operations[1].mode = Mode::permanent;
    EXPECT_EQ(made.error(made.now),
              "Only disposable caches can be removed permanently. Generated work can only be moved "
              "to the Trash.");
}

TEST(AIToolCleanupRunner, RefusesTheWholeBeforeAnythingIsTouched) {
    Cleaning made;
    made.prepare();
    const auto before = made.files("home");
    EXPECT_EQ(made.errorOf([](auto& approval) { approval.manifestID = {}; }), mismatch);
    EXPECT_EQ(made.errorOf([](auto& approval) { approval.digest[0] = 'x'; }), mismatch);
    EXPECT_EQ(made.errorOf([](auto& approval) { ++approval.byteCount; }), mismatch);
    EXPECT_EQ(made.errorOf([](auto& approval) { ++approval.itemCount; }), mismatch);
    const Timestamp later = made.now.adding(1);
    EXPECT_EQ(made.errorOf([&](auto& approval) { approval.approvedAt = later; }), mismatch);
    const auto approval = AIToolCleanupApproval::approve(made.manifest, made.now);
    ++made.manifest.operations[0].entries[0].byteCount;
    EXPECT_EQ(made.errorOf([&](auto& given) { given = approval; }), mismatch);
    EXPECT_EQ(made.error(made.now), mismatch) << "entry and candidate do not agree";
    --made.manifest.operations[0].entries[0].byteCount;

    EXPECT_EQ(made.error(made.now.adding(600.5)), expired);
    auto fresh = AIToolCleanupApproval::approve(made.manifest, made.now.adding(601));
    const auto late = made.program->runner.execute({.manifest = made.manifest,
                                                    .approval = fresh,
                                                    .toolBytesBefore = 0,
                                                    .at = made.now.adding(601)});
    EXPECT_EQ(late.error(), AIToolCleanupError::manifestExpired) << "the approval is fresh";
    // The clock goes back between audit and confirmation.
    fresh.approvedAt = made.now.adding(-1);
    EXPECT_EQ(made.program->runner
                  .execute({.manifest = made.manifest,
                            .approval = fresh,
                            .toolBytesBefore = 0,
                            .at = made.now.adding(-1)})
                  .error(),
              AIToolCleanupError::manifestExpired);

    // Renamed away, made anew with the same contents, or a link to the very folder.
    const std::string home = made.place / "home/.codex";
    fs::rename(home, made.place / "home/aside");
    EXPECT_EQ(made.error(made.now), changed);
    fs::copy(made.place / "home/aside", home, fs::copy_options::recursive);
    EXPECT_EQ(made.error(made.now), changed);
    fs::remove_all(home);
    made.place.link("home/.codex", made.place / "home/aside");
    EXPECT_EQ(made.error(made.now), changed);
    fs::remove(home);
    fs::rename(made.place / "home/aside", home);
    EXPECT_EQ(made.files("home"), before);
    EXPECT_EQ(made.outcome().completedCount(), 4);
}

TEST(AIToolCleanupRunner, LeavesWhatChangedAndGoesOnWithTheOthers) {
    Cleaning made;
    made.place.file(ToolHomes::scratch + "gone", "a");
    made.place.file(ToolHomes::scratch + "replaced", "b");
    made.place.file(ToolHomes::scratch + "told", "c");
    made.place.file(ToolHomes::scratch + "open", "d");
    made.place.file(ToolHomes::scratch + "linked", "e");
    made.prepare();
    const auto place = [&](const std::string& name) {
        return made.place / (ToolHomes::scratch + name);
    };
    fs::remove(place("gone"));
    made.place.file(ToolHomes::scratch + "beside", "b");
    fs::rename(place("beside"), place("replaced"));
    made.place.hardLink("linked", ToolHomes::scratch + "linked");
    made.veto = [](const auto&, std::span<const std::string> below, const auto&,
                   const std::string& name) -> std::optional<AIToolVeto::Reason> {
        return below.size() == 2 && name == "told"
                   ? std::optional(AIToolVeto::Reason::tellingContents)
                   : std::nullopt;
    };
    made.fakeProcesses.answer->processes = {
        {.pid = 4'711, .executable = "/bin/tool", .files = {place("open")}}};
    const auto manifest = made.manifest;
    made.program = std::make_unique<ToolHomes::Program>(made); // another run of the program
    made.manifest = manifest;
    const auto outcome = made.outcome();
    EXPECT_EQ(Cleaning::reason(outcome, "/gone"),
              "The item is no longer where it was when it was scanned.");
    EXPECT_EQ(Cleaning::reason(outcome, "/replaced"), "The item changed after it was scanned.");
    EXPECT_EQ(Cleaning::reason(outcome, "/linked"), "The item changed after it was scanned.");
    EXPECT_EQ(Cleaning::reason(outcome, "/open"),
              "A running process is using this item. Try again when it finishes.");
    EXPECT_EQ(Cleaning::reason(outcome, "/told"), "Local policy now protects this item.")
        << "by its contents, which only the last check reads";
    EXPECT_EQ(outcome.completedCount(), 4);
    EXPECT_EQ(outcome.refusedCount(), 5);
    EXPECT_TRUE(fs::exists(place("told")) && fs::exists(place("open")));
    EXPECT_FALSE(fs::exists(place("objects")));
    EXPECT_TRUE(fs::exists(place(""))) << "something is left in it";
}

TEST(AIToolCleanupRunner, RefusesAFileThatBecameYounger) {
    Cleaning made;
    made.prepare();
    // Seen an hour after it was made, it is too young; the others were made long before that.
    const Timestamp soon = Timestamp::now().adding(3'600);
    made.manifest.createdAt = soon;
    made.manifest.expiresAt = soon.adding(600);
    made.now = soon;
    const auto outcome = made.outcome();
    EXPECT_EQ(outcome.completedCount(), 0);
    EXPECT_EQ(Cleaning::reason(outcome, "/one"), "The item changed after it was scanned.");
    EXPECT_FALSE(outcome.stopReason);
    EXPECT_TRUE(outcome.receipts.empty());
}

TEST(AIToolCleanupRunner, StopsWhenTooMuchChanged) {
    Cleaning made;
    for (int i = 0; i < 36; ++i) {
        made.place.file(ToolHomes::scratch + "many/" + std::to_string(i), "x");
    }
    made.prepare();
    ASSERT_EQ(made.manifest.itemCount(), 40);
    const auto remove = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            fs::remove(made.place / (ToolHomes::scratch + "many/" + std::to_string(i)));
        }
    };
    remove(0, 11);
    const auto stopped = made.outcome();
    EXPECT_EQ(stopped.stopReason,
              "Too much had changed since the check, so Tidyro stopped before touching anything. "
              "Check again for a fresh list.");
    EXPECT_EQ(stopped.refusedCount(), 11);
    EXPECT_EQ(stopped.untouchedCount(), 29);
    EXPECT_EQ(stopped.lines.front().reason, "Not reached before the cleanup stopped.");
    EXPECT_TRUE(fs::exists(made.place / (ToolHomes::scratch + "many/11")));
    made.place.file(ToolHomes::scratch + "many/0", "x"); // it is refused as another one
    remove(11, 12);

    Cleaning fewer;
    for (int i = 0; i < 36; ++i) {
        fewer.place.file(ToolHomes::scratch + "many/" + std::to_string(i), "x");
    }
    fewer.prepare();
    for (int i = 0; i < 10; ++i) {
        fs::remove(fewer.place / (ToolHomes::scratch + "many/" + std::to_string(i)));
    }
    EXPECT_EQ(fewer.outcome().completedCount(), 30) << "no more than a quarter";
}

TEST(AIToolCleanupRunner, StopsAsAskedAndTellsWhy) {
    Cleaning made;
    made.prepare();
    std::stop_source stop;
    stop.request_stop();
    const auto approval = AIToolCleanupApproval::approve(made.manifest, made.now);
    const auto outcome = made.program->runner.execute({.manifest = made.manifest,
                                                       .approval = approval,
                                                       .toolBytesBefore = 0,
                                                       .at = made.now,
                                                       .cancel = stop.get_token()});
    EXPECT_EQ(outcome->stopReason, "The cleanup was stopped before anything was touched.");
    EXPECT_EQ(outcome->untouchedCount(), 4);

    std::stop_source during;
    const auto partly = made.program->runner.execute(
        {.manifest = made.manifest,
         .approval = approval,
         .toolBytesBefore = 0,
         .at = made.now,
         .onProgress = [&](const CleanupExecutor::Progress&) { during.request_stop(); },
         .cancel = during.get_token()});
    EXPECT_TRUE(partly->stopReason);
    EXPECT_EQ(partly->completedCount(), 1);
    EXPECT_EQ(partly->untouchedCount(), 3);
    EXPECT_EQ(partly->receipts.size(), 1);
    made.prepare(); // of what is left

    // Another cleanup has the journal.
    FileCleanupIntentJournal journal(
        FileURL::folder(made.place / "home/.local/share/Harborline/intents"));
    const auto hold = journal.hold();
    const auto busy = made.outcome();
    EXPECT_TRUE(busy.stopReason);
    EXPECT_EQ(busy.untouchedCount(), 3);
}

TEST(AIToolCleanupRunner, RemovesNoFolderThatIsInUseOrALinkOrNotEmpty) {
    Cleaning made;
    made.prepare(Mode::permanent);
    made.place.folder("elsewhere/aa");
    const auto reached = [&] {
        std::vector<CleanupReceiptEntry> all;
        for (const auto& candidate : made.manifest.operations[0].candidates) {
            all.push_back({.candidateID = candidate.id(),
                           .originalURL = candidate.observation.url,
                           .byteCount = 1,
                           .disposition = permanentlyRemoved});
        }
        return all;
    }();
    const auto remove = [&] {
        return made.program->runner.removeEmptiedFolders(made.manifest, reached);
    };
    EXPECT_EQ(remove(), 0) << "nothing is empty";
    const std::string objects = made.place / (ToolHomes::scratch + "objects");
    fs::remove_all(objects);
    made.place.link(ToolHomes::scratch + "objects", made.place / "elsewhere");
    EXPECT_EQ(remove(), 0);
    EXPECT_TRUE(fs::exists(made.place / "elsewhere/aa")) << "behind a link";
    fs::remove(objects);
    made.place.folder(ToolHomes::scratch + "objects/aa");
    made.place.folder(ToolHomes::scratch + "objects/bb");
    made.fakeProcesses.answer->processes = {
        {.pid = 4'711, .executable = "/bin/tool", .workingFolder = objects + "/aa", .files = {}}};
    EXPECT_EQ(remove(), 1);
    EXPECT_TRUE(fs::exists(objects + "/aa")) << "somebody works in it";
    made.fakeProcesses.answer->processes.clear();
    made.fakeProcesses.answer->areOthersHidden = true;
    EXPECT_EQ(remove(), 0) << "nobody knows who works where";
}

TEST(AIToolCleanupChecks, BelieveNothingInAnAuthorization) {
    Cleaning made;
    made.prepare();
    const AIToolCleanupChecks& checks = made.program->checks;
    const FileURL item = FileURL::file(made.place / (ToolHomes::scratch + "objects/aa/one"));
    const authorization::AIToolRule rule{.toolID = "codex",
                                         .ruleID = "codex-tmp-git-scratch",
                                         .rootURL =
                                             FileURL::folder(made.place / "home/.codex/.tmp")};
    const auto covers = [&](const auto& change) {
        auto claim = rule;
        change(claim);
        return checks.covers(claim, item);
    };
    EXPECT_TRUE(checks.covers(rule, item));
    EXPECT_FALSE(covers([](auto& claim) { claim.toolID = "cursor"; }));
    EXPECT_FALSE(covers([](auto& claim) { claim.toolID = "nobody"; }));
    EXPECT_FALSE(covers([](auto& claim) { claim.ruleID = "codex-cache-apps-tools"; }));
    EXPECT_FALSE(covers([](auto& claim) { claim.ruleID = "nobody"; }));
    EXPECT_FALSE(covers([&](auto& claim) { claim.rootURL = made.homes()[0].url; }));
    EXPECT_FALSE(checks.covers(rule, FileURL::file(made.place / "home/.codex/auth.json")));
    EXPECT_FALSE(checks.covers(rule, FileURL::file(made.place / "home/.codex/.tmp")));

    // The root is the same folder, behind a link.
    fs::rename(made.place / "home/.codex/.tmp", made.place / "home/aside");
    made.place.link("home/.codex/.tmp", made.place / "home/aside");
    EXPECT_FALSE(checks.covers(rule, item));
    fs::remove(made.place / "home/.codex/.tmp");
    fs::rename(made.place / "home/aside", made.place / "home/.codex/.tmp");
    EXPECT_TRUE(checks.covers(rule, item));
    // The home is no home of the tool any more, though it is the same folder.
    made.place.folder("home/.codex/.git");
    EXPECT_FALSE(checks.covers(rule, item));
    fs::remove(made.place / "home/.codex/.git");
    made.fakeProcesses.answer = std::unexpected(SystemError{13});
    EXPECT_FALSE(checks.covers(rule, item)) << "nobody knows what is in use";
}

TEST(AIToolCleanupRunner, CleansAHomeThatIsReachedThroughALink) {
    Cleaning made;
    fs::rename(made.place / "home", made.place / "disk");
    made.place.link("home", made.place / "disk");
    made.prepare(Mode::permanent);
    const auto outcome = made.outcome();
    EXPECT_EQ(outcome.completedCount(), 4) << outcome.stopReason.value_or("");
    EXPECT_EQ(outcome.removedEmptyFolderCount, 5);
}

} // namespace
} // namespace tidyro
