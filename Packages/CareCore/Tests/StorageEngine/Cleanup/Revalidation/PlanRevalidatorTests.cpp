#include "StorageEngine/Cleanup/Revalidation/PlanRevalidator.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "StorageEngine/PickedItems/ProjectArtifactRemovalPolicy.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "Support/OtherCircumstances.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;

constexpr double days = 86'400;

/// The volumes, and how often they were asked for.
struct CountedVolumes final : platform::Volumes {
    platform::testing::FakeVolumes fake;
    mutable int timesAsked = 0;
    [[nodiscard]] std::expected<std::vector<platform::Volume>, SystemError>
    mounted() const override {
        ++timesAsked;
        return fake.mounted();
    }
};

/// A home with a cache, a folder that the person opened, a plan of their items, and a revalidator
/// for the same machine. All was made a year ago, as the clock of the bench has it.
struct Bench {
    std::unique_ptr<TemporaryFolder> owned = std::make_unique<TemporaryFolder>();
    const TemporaryFolder& place;
    CountedVolumes volumes;
    platform::testing::FakeRunningApplications applications;
    SafetyPolicyFacts facts = testing::quietMachine();
    std::optional<HiddenProcesses> hidden;
    bool hasContext = true;
    int contextsTaken = 0;
    std::vector<CleanupRule> rules;
    std::vector<FileURL> opened;
    const Timestamp planned = Timestamp::now().adding(365 * days);
    const Timestamp now = planned.adding(60);
    CleanupPlan plan;

    Bench() : Bench(nullptr) {}
    explicit Bench(const TemporaryFolder* at) : place(at != nullptr ? *at : *owned) {
        volumes.fake = platform::testing::FakeVolumes::withOneAt(place.path());
        place.file("home/.npm/_cacache/a/file", "contents");
        place.file("home/.npm/_cacache/a/second", "more of it");
        place.file("opened/project/package.json");
        place.file("opened/project/node_modules/lib/x.js", "x");
        place.file("opened/folder/sub/file", "inside");
        place.file("opened/single", "a file");
        rules = BuiltInCleanupRules::currentUser(home());
        opened = {FileURL::folder(place / "opened")};
    }
    [[nodiscard]] FileURL home() const { return FileURL::folder(place / "home"); }
    [[nodiscard]] std::shared_ptr<const SafetyPolicyContext> context() const {
        return std::make_shared<const SafetyPolicyContext>(facts, std::vector<FileURL>{}, hidden);
    }

    /// Plans files of the cache as a scan suggests them.
    void planFiles(const std::vector<std::string>& names) {
        std::vector<CleanupCandidate> candidates;
        const DeterministicSafetyPolicy policy(home());
        for (const std::string& name : names) {
            const auto observed =
                FileIdentity::observation(FileURL::file(place / name), home(), volumes);
            candidates.push_back(
                policy.classify(*observed, {.rules = rules, .context = *context(), .now = planned})
                    .authorized(CleanupAuthorization{authorization::BuiltInRule{
                        .id = "npm-cache", .rootURL = home().appendingFolder(".npm/_cacache")}}));
        }
        plan = *CleanupPlanner(CleanupPlanner::hour, home())
                    .makeExactPlan({.candidates = candidates,
                                    .mode = CleanupExecutionMode::recoverable,
                                    .now = planned});
    }
    void planEntry(CleanupPlanEntry entry) {
        plan = {.id = UUID(),
                .goal = {.byteCount = 1},
                .entries = {std::move(entry)},
                .createdAt = planned,
                .expiresAt = planned.adding(CleanupPlanner::hour),
                .mode = CleanupExecutionMode::recoverable};
    }
    [[nodiscard]] DiskItemRemovalPolicy::Options itemOptions() const {
        return {.home = home(), .openedFolders = opened, .context = context(), .volumes = volumes};
    }
    void planItem(const std::string& name) {
        DiskItemRemovalPolicy policy(itemOptions());
        planEntry(*policy.planEntry(
            {.item = FileURL::file(place / name), .measuredBytes = 1, .at = planned}));
    }
    void planArtifact() {
        ProjectArtifactRemovalPolicy policy(itemOptions());
        planEntry(*policy.planEntry({.artifact = artifact(), .measuredBytes = 1, .at = planned}));
    }
    [[nodiscard]] authorization::ProjectArtifact artifact() const {
        return {.workspaceURL = opened.front(),
                .projectURL = FileURL::folder(place / "opened/project"),
                .folderName = "node_modules"};
    }

    [[nodiscard]] DefaultPlanRevalidator revalidator(AIToolEntryRevalidator* aiTools = nullptr) {
        return DefaultPlanRevalidator({.home = home(),
                                       .rules = rules,
                                       .sessionRoots = opened,
                                       .freshContext =
                                           [this] {
                                               ++contextsTaken;
                                               return hasContext ? context() : nullptr;
                                           },
                                       .volumes = volumes,
                                       .applications = applications,
                                       .aiTools = aiTools});
    }
    /// The issues of all entries by their names, "-" for none.
    [[nodiscard]] std::string told(std::optional<Timestamp> at = std::nullopt,
                                   const PlanRevalidator::Scope& scope = {}) {
        const auto report = revalidator().revalidate(plan, at.value_or(now), scope);
        if (!report) return "cancelled";
        std::string all;
        for (const EntryRevalidation& entry : report->entries) {
            all += (all.empty() ? "" : " ") +
                   (entry.issue ? std::string(rawValue(*entry.issue)) : "-");
        }
        return all;
    }
};

constexpr const char* first = "home/.npm/_cacache/a/file";
constexpr const char* second = "home/.npm/_cacache/a/second";

TEST(PlanRevalidator, TellsTheFirstIssueThatAppliesToAFile) {
    struct Row {
        const char* told;
        std::function<void(Bench&)> happens;
    };
    const auto openIt = [](Bench& bench) {
        bench.facts.openByProcessPaths.insert(bench.place / first);
    };
    const auto runIt = [](Bench& bench) {
        bench.facts.activeApplicationRoots.push_back(FileURL::folder(bench.place / "home/.npm"));
    };
    const auto protectIt = [](Bench& bench) {
        bench.facts.additionalProtectedRoots.push_back(FileURL::folder(bench.place / "home/.npm"));
    };
    const auto changeIt = [](Bench& bench) { bench.place.file(first, "CONTENTS"); };
    const auto moveAside = [](Bench& bench) {
        fs::rename(bench.place / first, bench.place / "aside");
    };
    const std::vector<Row> rows{
        {"-", [](Bench&) {}},
        {"itemMissing", [](Bench& bench) { fs::remove(bench.place / first); }},
        {"itemMissing", [](Bench& bench) { fs::remove_all(bench.place / "home/.npm"); }},
        {"itemMissing", [&](Bench& bench) { openIt(bench), moveAside(bench); }},
        {"itemChanged", changeIt},
        {"itemChanged", [&](Bench& bench) { changeIt(bench), openIt(bench), protectIt(bench); }},
        {"itemChanged",
         [&](Bench& bench) {
             moveAside(bench);
             bench.place.file(first, "contents");
             fs::last_write_time(bench.place / first, fs::last_write_time(bench.place / "aside"));
         }},
        {"itemChanged",
         [&](Bench& bench) { moveAside(bench), bench.place.link(first, bench.place / "aside"); }},
        {"itemChanged", [&](Bench& bench) { moveAside(bench), bench.place.folder(first); }},
        {"inUseByProcess", openIt},
        {"inUseByProcess", [&](Bench& bench) { openIt(bench), runIt(bench), protectIt(bench); }},
        {"runtimeRestriction", runIt},
        {"runtimeRestriction", [&](Bench& bench) { runIt(bench), protectIt(bench); }},
        {"protectedEntry", protectIt},
        {"protectedEntry",
         [](Bench& bench) { bench.place.folder("home/.npm/_cacache/.git/objects"); }},
        {"protectedEntry", [](Bench& bench) { bench.rules.clear(); }},
        {"protectedEntry",
         [](Bench& bench) { bench.volumes.fake.answer = std::vector<platform::Volume>{}; }},
        {"protectedEntry",
         [](Bench& bench) {
             fs::rename(bench.place / "home/.npm/_cacache", bench.place / "home/cache");
             bench.place.link("home/.npm/_cacache", "../cache");
         }},
        {"authoritativePolicyMismatch",
         [](Bench& bench) {
             bench.rules.emplace_back(CleanupRule::Options{
                 .id = "deeper",
                 .rootURL = FileURL::folder(bench.place / "home/.npm/_cacache/a"),
                 .category = CleanupCategory::regenerableCache,
                 .minimumAge = 0,
                 .isRegenerable = true,
                 .alwaysNeedsReview = true});
         }},
        {"authoritativePolicyMismatch",
         [](Bench& bench) {
             bench.hidden = HiddenProcesses{.applicationFolders = {bench.home()}};
         }},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        Bench bench;
        bench.planFiles({first});
        ASSERT_EQ(bench.plan.entries.front().proofCard.riskTier, RiskTier::safeToReclaim);
        rows[i].happens(bench);
        const bool isOfVolume = bench.volumes.fake.answer->empty();
        EXPECT_EQ(bench.told(), isOfVolume ? "itemChanged" : rows[i].told) << "row " << i;
    }
}

TEST(PlanRevalidator, AsksTheFileItselfWhoHasItOpen) {
    const auto image = testing::MountedImage::make("ext4");
    if (!image) GTEST_SKIP() << "ext4 images need root and its tools";
    Bench bench(&image->folder());
    bench.planFiles({first, second});
    EXPECT_EQ(bench.told(), "- -");
    bench.place.hardLink("other name", second);
    const int held = ::open((bench.place / "other name").c_str(), O_RDONLY);
    EXPECT_EQ(bench.plan.entries.front().sourceURL.path(), bench.place / second) << "is larger";
    EXPECT_EQ(bench.told(), "inUseByProcess -") << "by another name, and no process list tells";
    ::close(held);
    EXPECT_EQ(bench.told(), "- -");
}

TEST(PlanRevalidator, TellsWhatCannotBeRead) {
    Bench bench;
    bench.planFiles({first});
    fs::permissions(bench.place.path(), fs::perms::all);
    bench.place.permissions("home/.npm/_cacache/a", 0);
    EXPECT_EQ(testing::asOrdinaryUser([&] { return bench.told(); }), "observationFailed");
    bench.place.permissions("home/.npm/_cacache/a", 0755);
}

TEST(PlanRevalidator, JudgesExpiryOnceAndTheMachineOnce) {
    Bench bench;
    bench.planFiles({first, second});
    const Timestamp end = bench.plan.expiresAt;
    EXPECT_EQ(bench.told(end.adding(-1)), "- -");
    bench.contextsTaken = 0;
    bench.volumes.timesAsked = 0;
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const Timestamp at :
         {end, end.adding(days), bench.planned.adding(-1), Timestamp::sinceReference(nan)}) {
        EXPECT_EQ(bench.told(at), "planExpired planExpired");
    }
    EXPECT_EQ(bench.contextsTaken + bench.volumes.timesAsked, 0) << "nothing else is checked";
    const auto judgedBefore = PlanRevalidator::Expiry::judgedBefore;
    EXPECT_EQ(bench.told(end, {.expiry = judgedBefore}), "- -");
    EXPECT_EQ(bench.contextsTaken, 1);
    EXPECT_EQ(bench.volumes.timesAsked, 1);
    fs::remove(bench.place / first);
    EXPECT_EQ(bench.told(end, {.firstEntry = 1, .expiry = judgedBefore}), "itemMissing");
    EXPECT_EQ(bench.told(bench.now, {.firstEntry = 9}), "");
    bench.hasContext = false;
    EXPECT_EQ(bench.told(), "observationFailed observationFailed");
    bench.hasContext = true;
    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(bench.told(bench.now, {.cancel = stop.get_token()}), "cancelled");

    bench.plan.id = UUID({7});
    const auto report = bench.revalidator().revalidate(bench.plan, bench.now);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->planID, bench.plan.id);
    EXPECT_EQ(report->checkedAt, bench.now);
    EXPECT_EQ(report->entries[1].candidateID, bench.plan.entries[1].candidateID);
    EXPECT_EQ(toJSON(EntryRevalidation{.candidateID = {"a"}}).dump(),
              R"({"candidateID":{"rawValue":"a"}})");
    EXPECT_EQ(fromJSON<PlanRevalidationReport>(toJSON(*report)), *report);
}

TEST(PlanRevalidator, AsksThePolicyOfPickedItems) {
    struct Row {
        const char* item;
        const char* told;
        std::function<void(Bench&)> happens;
    };
    const std::vector<Row> rows{
        {"opened/single", "-", [](Bench&) {}},
        {"opened/folder", "-", [](Bench&) {}},
        {"opened/single", "itemChanged", [](Bench& b) { b.place.file("opened/single", "A FILE"); }},
        {"opened/folder", "itemMissing",
         [](Bench& b) { fs::remove_all(b.place / "opened/folder"); }},
        {"opened/folder", "itemChanged",
         [](Bench& b) {
             b.place.times("opened/folder/sub/file", 0,
                           static_cast<std::int64_t>(b.planned.secondsSince1970()) + 5);
         }},
        {"opened/folder", "itemChanged", [](Bench& b) { b.place.file("opened/folder/new"); }},
        {"opened/folder", "inUseByProcess",
         [](Bench& b) { b.facts.openByProcessPaths.insert(b.place / "opened/folder/sub/file"); }},
        {"opened/folder", "runtimeRestriction",
         [](Bench& b) {
             b.facts.activeApplicationRoots.push_back(
                 FileURL::folder(b.place / "opened/folder/sub"));
         }},
        {"opened/folder", "protectedEntry",
         [](Bench& b) { b.place.pipe("opened/folder/sub/pipe"); }},
        {"opened/folder", "protectedEntry", [](Bench& b) { b.opened.clear(); }},
        {"opened/folder", "authoritativePolicyMismatch",
         [](Bench& b) { b.plan.entries.front().proofCard.riskTier = RiskTier::safeToReclaim; }},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        Bench bench;
        bench.planItem(rows[i].item);
        rows[i].happens(bench);
        EXPECT_EQ(bench.told(), rows[i].told) << "row " << i;
    }
    Bench bench;
    const auto told = testing::inMountNamespace([&]() -> std::string {
        // The mounts have other numbers here.
        bench.volumes.fake = platform::testing::FakeVolumes::withOneAt(bench.place.path());
        bench.planItem("opened/folder");
        const std::string before = bench.told();
        const bool isMounted =
            testing::bindMount(bench.place / "home", bench.place / "opened/folder/sub");
        return isMounted ? before + " " + bench.told() : "not mounted";
    });
    if (!told) GTEST_SKIP() << "needs a mount namespace";
    EXPECT_EQ(*told, "- protectedEntry") << "the mount would move with it";
}

TEST(PlanRevalidator, AsksThePoliciesOfProjectsApplicationsAndAITools) {
    Bench bench;
    bench.planArtifact();
    EXPECT_EQ(bench.told(), "-");
    fs::remove(bench.place / "opened/project/package.json");
    EXPECT_EQ(bench.told(), "protectedEntry");
    bench.place.file("opened/project/package.json");
    bench.place.file("opened/project/.git/index", "damaged");
    EXPECT_EQ(bench.told(), "observationFailed") << "whether it is tracked is not known";
    fs::remove_all(bench.place / "opened/project/.git");
    EXPECT_EQ(bench.told(), "-");
    bench.plan.entries.front().authorization->value =
        authorization::ProjectArtifact{.workspaceURL = bench.opened.front(),
                                       .projectURL = bench.artifact().projectURL,
                                       .folderName = "dist"};
    EXPECT_EQ(bench.told(), "protectedEntry") << "names another folder";

    bench.planItem("opened/folder");
    std::optional<CleanupAuthorization>& claim = bench.plan.entries.front().authorization;
    claim = CleanupAuthorization{authorization::UserSelectedApplication{
        .bundleURL = bench.plan.entries.front().sourceURL, .bundleIdentifier = "org.paint"}};
    EXPECT_EQ(bench.told(), "protectedEntry");
    claim.reset();
    EXPECT_EQ(bench.told(), "protectedEntry") << "a folder is rated by no rule";

    struct OneTool final : AIToolEntryRevalidator {
        std::optional<RevalidationIssue> answer;
        [[nodiscard]] std::optional<RevalidationIssue> issue(const CleanupPlanEntry&,
                                                             const FileObservation&,
                                                             const SafetyPolicyContext&,
                                                             Timestamp) override {
            return answer;
        }
    } tool;
    bench.planItem("opened/single");
    bench.plan.entries.front().authorization = CleanupAuthorization{authorization::AIToolRule{
        .toolID = "tool", .ruleID = "logs", .rootURL = bench.opened.front()}};
    EXPECT_EQ(bench.told(), "protectedEntry") << "nobody knows its rules";
    const auto issue = [&] {
        return bench.revalidator(&tool).revalidate(bench.plan, bench.now)->entries[0].issue;
    };
    EXPECT_EQ(issue(), std::nullopt);
    tool.answer = RevalidationIssue::authoritativePolicyMismatch;
    EXPECT_EQ(issue(), tool.answer);
    bench.facts.activeApplicationRoots.push_back(bench.opened.front());
    EXPECT_EQ(issue(), tool.answer) << "its own rules know what may go while it runs";
    bench.facts.openByProcessPaths.insert(bench.place / "opened/single");
    EXPECT_EQ(issue(), RevalidationIssue::inUseByProcess);
}

TEST(PlanRevalidator, ExplainsEachIssue) {
    std::string all;
    for (const RevalidationIssue issue : allCases<RevalidationIssue>()) {
        all += std::string(explanation(issue)) + "\n";
    }
    EXPECT_EQ(all, "The plan expired. Scan again and review it.\n"
                   "The item is no longer where it was when it was scanned.\n"
                   "The item changed after it was scanned.\n"
                   "Local policy now protects this item.\n"
                   "The app that owns this data is running. Quit it and try again.\n"
                   "The evidence on screen no longer matches the file. Scan again.\n"
                   "The item could not be read for its final check.\n"
                   "A running process is using this item. Try again when it finishes.\n");
}

} // namespace
} // namespace tidyro
