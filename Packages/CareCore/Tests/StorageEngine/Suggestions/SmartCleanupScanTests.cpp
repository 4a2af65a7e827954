#include "StorageEngine/Suggestions/SmartCleanupScan.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Testing/FakeRunningProcesses.h"
#include "StorageEngine/Suggestions/CleanupBench.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;

/// A file of a made home, and what the scan is to say of it: "safe RULE", "review RULE" or
/// "held RULE CODE"; nothing where it is not even looked at.
struct Row {
    const char* path;
    int daysOld;
    std::size_t bytes;
    const char* said;
};
constexpr std::array<Row, 81> rows{{
    {".npm/_cacache/content-v2/sha512/aa/bb", 31, 900, "safe npm-cache"},
    {".npm/_cacache/content-v2/sha512/aa/young", 29, 901, "held npm-cache insufficientAge"},
    {".npm/_cacache/content-v2/sha512/aa/open", 31, 902, "held npm-cache openByProcess"},
    {".npm/_cacache/index-v5/00/11", 31, 50, "safe npm-cache"},
    {".npm/_logs/2026-01-01-debug-0.log", 15, 10, "safe npm-logs"},
    {".npm/secrets", 400, 11, ""},
    {".cache/pip/http-v2/5/2/x.body", 31, 700, "safe pip-cache-dot"},
    {".cache/pip/selfcheck.db", 31, 20, "held pip-cache-dot liveDataStore"},
    {".cache/tool/f.cache-9", 31, 30, "review dot-cache"},
    {".cache/tool/young.cache-9", 29, 31, "held dot-cache insufficientAge"},
    {".cache/huggingface/hub/blobs/model", 400, 5'000, "held dot-cache protectedLocation"},
    {".cache/uv/wheels/x", 400, 100, "held dot-cache protectedLocation"},
    {".cache/rclone/vfs/x", 400, 101, ""},
    {".cache/nvim/undo/x", 400, 102, "held dot-cache protectedLocation"},
    {".cache/google-chrome/Default/Cache/x", 4, 103, "safe linux-chrome-cache"},
    {".cache/JetBrains/Idea/LocalHistory/changes", 400, 104,
     "held linux-jetbrains protectedLocation"},
    {".cache/go-build/00/a", 15, 105, "safe linux-go-build"},
    {".config/discord/Cache/Cache_Data/x", 8, 106, "safe linux-discord-support"},
    {".config/discord/settings.json", 400, 107, "held linux-discord-support protectedLocation"},
    {".var/app/org.gimp.GIMP/cache/x", 31, 108, "review flatpak-caches:org.gimp.GIMP"},
    {".var/app/org.gimp.GIMP/data/x", 400, 109, ""},
    {"snap/notes/common/.cache/x", 31, 110, "review snap-caches:notes"},
    {".local/share/Steam/steamapps/shadercache/1/x", 31, 111, "safe linux-steam-shaders"},
    {".local/share/Steam/userdata/1/save", 400, 112, ""},
    {".m2/repository/org/mine/maven-metadata-local.xml", 400, 113,
     "held linux-maven protectedLocation"},
    {".m2/repository/org/theirs/x.jar", 91, 114, "review linux-maven"},
    {".cache/puppeteer/chrome/linux-1/chrome", 31, 300, "safe puppeteer-browsers"},
    {".cache/opencode/models", 15, 40, "safe opencode-cache"},
    {".cache/restic/0f/data/ab/cd", 400, 41, "held dot-cache backupArtifact"},
    {".cache/restic/0f/config", 400, 42, "held dot-cache backupArtifact"},
    {".cache/restic/0f/keys/k", 400, 43, "held dot-cache backupArtifact"},
    {".cache/restic/0f/snapshots/s", 400, 44, "held dot-cache backupArtifact"},
    {".cargo/registry/cache/index/serde.crate", 31, 800, "safe cargo-registry-cache"},
    {".cargo/registry/src/index/serde/lib.rs", 400, 801, ""},
    {".cargo/git/checkouts/tool/ab12/src.rs", 61, 60, "safe cargo-git-checkouts"},
    {".cargo/git/checkouts/own/cd34/.git/HEAD", 61, 61, "review cargo-git-checkouts"},
    {".cargo/git/checkouts/own/cd34/work.rs", 61, 62, "review cargo-git-checkouts"},
    {".gradle/caches/modules-2/a.jar", 31, 600, "safe gradle-caches"},
    {".gradle/wrapper/dists/gradle-8/x.zip", 59, 601, "held gradle-wrapper insufficientAge"},
    {".gradle/daemon/8.5/daemon-1.out.log", 15, 70, "safe gradle-daemon-logs"},
    {".gradle/gradle.properties", 400, 71, ""},
    {".ollama/models/blobs/partial/sha256-1", 8, 4'000, "review ollama-blob-partials"},
    {".ollama/models/blobs/sha256-2", 400, 4'001, ""},
    {"Library/Caches/Google/Chrome/Default/Cache/f_01", 4, 80, "safe chrome-cache"},
    {"Library/Caches/Firefox/Profiles/p/cache2/entries/E", 2, 81,
     "held firefox-cache insufficientAge"},
    {"Library/Application Support/Google/Chrome/Default/Cache/Cache_Data/d", 4, 82,
     "safe chrome-support-caches"},
    {"Library/Application Support/Google/Chrome/Default/History", 400, 83,
     "held chrome-support-caches protectedLocation"},
    {"Library/Application Support/Google/Chrome/Default/IndexedDB/site/0.log", 400, 84,
     "held chrome-support-caches liveDataStore"},
    {"Library/Application Support/Claude/GPUCache/data_0", 8, 85,
     "safe claude-desktop-support-caches"},
    {"Library/Application Support/Claude/Caches", 400, 98,
     "held claude-desktop-support-caches protectedLocation"},
    {"Library/Application Support/Claude/conversations.json", 400, 86,
     "held claude-desktop-support-caches protectedLocation"},
    {"Library/Application Support/Cursor/Cache/c", 400, 87,
     "held cursor-support-caches activeApplicationData"},
    {"Library/Caches/tool/data.sqlite-wal", 400, 88, "held user-caches liveDataStore"},
    {"Library/Caches/tool/old", 15, 89, "safe user-caches"},
    {"Library/Caches/Documents/letter", 400, 90, "held user-caches personalLocation"},
    {"Library/Caches/Helper.app/Contents/MacOS/helper", 400, 91, ""},
    {"Library/Logs/app/app.log", 15, 92, "safe user-logs"},
    {"Library/Logs/growing.log", 15, 93, "held user-logs activeGrowth"},
    {"Library/Logs/DiagnosticReports/crash.ips", 29, 94, "held diagnostic-reports insufficientAge"},
    {"Library/pnpm/store/v3/files/00/exec", 61, 95, "review pnpm-store"},
    {".cache/terraform/kv/CURRENT", 400, 101, "held terraform-cache liveDataStore"},
    {".cache/terraform/kv/MANIFEST-000004", 400, 102, "held terraform-cache liveDataStore"},
    {".cache/terraform/kv/000003.log", 400, 103, "held terraform-cache liveDataStore"},
    {".cache/terraform/pg/PG_VERSION", 400, 104, "held terraform-cache liveDataStore"},
    {".cache/terraform/pg/base/1/2619", 400, 105, "held terraform-cache liveDataStore"},
    {".cache/terraform/pages", 400, 1'024, "held terraform-cache liveDataStore"},
    {".cache/terraform/blocks", 400, 1'024, "safe terraform-cache"},
    {".cache/terraform/cut/state", 400, 106, "held terraform-cache liveDataStore"},
    {".cache/terraform/cut/state-journal", 400, 107, "held terraform-cache liveDataStore"},
    {".cache/terraform/cut/other", 400, 108, "safe terraform-cache"},
    {".cache/terraform/own.git/HEAD", 400, 109, "held terraform-cache projectRepository"},
    {".cache/terraform/own.git/objects/pack/p", 400, 110, "held terraform-cache projectRepository"},
    {".cache/terraform/own.git/refs/heads/main", 400, 111,
     "held terraform-cache projectRepository"},
    {".cache/terraform/env/pyvenv.cfg", 400, 112, "held terraform-cache projectContent"},
    {".cache/terraform/env/lib/python3.11/site.py", 400, 113,
     "held terraform-cache projectContent"},
    {".cache/terraform/conda/conda-meta/history", 400, 114, "held terraform-cache projectContent"},
    {".cache/terraform/conda/bin/tool", 400, 115, "held terraform-cache projectContent"},
    {".cache/terraform/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/mine", 400, 99,
     "held terraform-cache protectedLocation"},
    {".cache/terraform/CURRENT", 400, 116, "safe terraform-cache"},
    {"Documents/thesis.txt", 400, 96, ""},
    {"projects/app/node_modules/x/index.js", 400, 97, ""},
}};

void makeHome(const CleanupBench& machine) {
    for (const Row& row : rows) machine.file(row.path, row.daysOld, row.bytes);
    machine.file(".cache/terraform/pages", 400, 1'024, std::string("SQLite format 3\0", 16));
    machine.place.file("outside/precious", "x");
    machine.place.times("outside/precious", 0, 0);
    machine.place.link("home/Library/Caches/out", machine.place / "outside");
    machine.place.link("home/Library/Caches/precious", machine.place / "outside/precious");
    machine.place.folder("home/.bundle");
    machine.place.link("home/.bundle/cache", machine.place / "outside");
    machine.place.link("home/.cache/node", machine.place / "outside"); // in another place's folder
    machine.place.hardLink("home/projects/app/exec", "home/Library/pnpm/store/v3/files/00/exec");
    machine.place.pipe("home/Library/Caches/tool/pipe");
}

std::string word(RiskTier tier) { return tier == RiskTier::safeToReclaim ? "safe" : "review"; }

TEST(SmartCleanupScan, IsUsedAsItsHeaderShows) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    const FileURL home = FileURL::folder(place.path());
    const auto show = [](const std::string& text) { ADD_FAILURE() << text; };

    LocalRuntimeSafetyContextProvider contexts(home);
    const platform::LiveVolumes volumes;
    const SmartCleanupScan scan(home, contexts, volumes, {});
    const auto report = scan.run();
    if (!report) show(SmartCleanupScan::description(report.error()));

    EXPECT_TRUE(report->groups.empty());
}

TEST(SmartCleanupScan, FindsWhatMayGoInARealHomeRowByRow) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    makeHome(machine);
    std::FILE* open =
        std::fopen((machine.place / "home/.npm/_cacache/content-v2/sha512/aa/open").c_str(), "re");
    ASSERT_NE(open, nullptr);
    const auto report = machine.scan({.betweenLooks = [&] {
        std::FILE* log =
            std::fopen((machine.place / "home/Library/Logs/growing.log").c_str(), "ae");
        std::fputs("more", log);
        std::fclose(log);
        // What grows is also young; its age is what it was before.
        machine.place.times("home/Library/Logs/growing.log", 1'000'000'000, 1'000'000'000);
    }});
    std::fclose(open);
    ASSERT_TRUE(report);

    std::map<std::string, std::string> expected;
    std::map<std::string, std::map<std::string, int>> expectedHeld;
    for (const Row& row : rows) {
        const std::string said = row.said;
        if (said.starts_with("held ")) {
            const std::size_t code = said.rfind(' ');
            ++expectedHeld[said.substr(5, code - 5)][said.substr(code + 1)];
        } else if (!said.empty()) {
            expected[row.path] = fmt::format("{} {}", said, row.bytes);
        }
    }
    std::map<std::string, std::string> found;
    std::map<std::string, std::map<std::string, int>> held;
    for (const SmartCleanupGroup& group : report->groups) {
        for (const CleanupCandidate& one : group.candidates) {
            found[machine.below(one.observation.url)] = fmt::format(
                "{} {} {}", word(one.assessment.tier), group.ruleID, one.observation.byteCount);
            EXPECT_EQ(one.authorization, (CleanupAuthorization{authorization::BuiltInRule{
                                             .id = group.ruleID, .rootURL = group.rootURL}}));
            EXPECT_TRUE(group.rootURL.path() < one.observation.url.path());
        }
        for (const auto& [code, count] : group.heldBecause) {
            held[group.ruleID][std::string(rawValue(code))] += static_cast<int>(count);
        }
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(held, expectedHeld);
    EXPECT_EQ(report->candidates().size(), expected.size());

    std::map<std::string, CoverageGapReason> gaps;
    for (const CoverageGap& gap : report->coverageGaps) gaps[machine.below(gap.url)] = gap.reason;
    using enum CoverageGapReason;
    EXPECT_EQ(gaps, (std::map<std::string, CoverageGapReason>{
                        {".bundle/cache", symbolicLinkExcluded},
                        {".cache/node", symbolicLinkExcluded},
                        {".cache/rclone", privacyProtectedExcluded},
                        {"Library/Caches/out", symbolicLinkExcluded},
                        {"Library/Caches/precious", symbolicLinkExcluded},
                        {"Library/Caches/tool/pipe", unsupportedFileType},
                        {"Library/Caches/Helper.app", packageBoundaryExcluded}}));
    EXPECT_EQ(report->gapCount, gaps.size());
}

TEST(SmartCleanupScan, OrdersGroupsAndTotalsThem) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    machine.file(".gem/cache/small", 90, 10);
    machine.file(".gem/cache/large", 90, 20'000);
    machine.file(".gem/cache/a", 90, 10);
    machine.file(".npm/_cacache/x", 90, 5);
    machine.file(".cache/node/only", 90, 7);
    machine.place.hardLink("home/.cache/node/same", "home/.cache/node/only");
    machine.file(".bun/install/cache/shared", 90, 9);
    machine.place.hardLink("home/project", "home/.bun/install/cache/shared");
    machine.file(".cache/node/young", 1, 100);
    const auto report = machine.scan({});
    ASSERT_TRUE(report);
    std::vector<std::string> order;
    for (const SmartCleanupGroup& group : report->groups) {
        for (const CleanupCandidate& one : group.candidates) {
            order.push_back(group.title + ": " + machine.below(one.observation.url));
        }
    }
    EXPECT_EQ(order, (std::vector<std::string>{
                         "npm cache: .npm/_cacache/x", "Bun cache: .bun/install/cache/shared",
                         "Ruby gem cache: .gem/cache/large", "Ruby gem cache: .gem/cache/a",
                         "Ruby gem cache: .gem/cache/small", "Node cache: .cache/node/only",
                         "Node cache: .cache/node/same"}));
    const auto& bun = report->groups[1];
    EXPECT_EQ(bun.safe.byteCount, 9U);
    EXPECT_EQ(bun.safe.freedByteCount, 0U) << "a name outside keeps the file";
    const auto& node = report->groups[3];
    EXPECT_EQ(node.safe.itemCount, 2U);
    EXPECT_EQ(node.safe.byteCount, 14U);
    EXPECT_EQ(node.safe.freedByteCount,
              platform::fileMetadata(machine.place / "home/.cache/node/only")->allocatedBytes)
        << "two names of one file free it once";
    EXPECT_EQ(node.held, (SmartCleanupTotals{.itemCount = 1, .byteCount = 100}));
    EXPECT_EQ(report->safe().itemCount, 7U);
    EXPECT_EQ(report->review(), SmartCleanupTotals{});
}

TEST(SmartCleanupScan, TrustsNothingBetweenItsLooks) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    struct Change {
        const char* what;
        std::function<void(const CleanupBench&)> make;
        const char* stays; ///< the evidence; nothing when the file is gone
    };
    const std::array<Change, 6> changes{
        {{"nothing", [](const CleanupBench&) {}, "safe"},
         {"vanished",
          [](const CleanupBench& m) {
              EXPECT_EQ(std::remove((m.place / "home/.npm/_cacache/d/x").c_str()), 0);
          },
          ""},
         {"replaced by one of the same size and age",
          [](const CleanupBench& m) {
              m.file(".npm/new", 90, 5);
              EXPECT_EQ(std::rename((m.place / "home/.npm/new").c_str(),
                                    (m.place / "home/.npm/_cacache/d/x").c_str()),
                        0);
          },
          "activeGrowth"},
         {"replaced by a pipe",
          [](const CleanupBench& m) {
              EXPECT_EQ(std::remove((m.place / "home/.npm/_cacache/d/x").c_str()), 0);
              m.place.pipe("home/.npm/_cacache/d/x");
          },
          "unknownPurpose"},
         {"became part of a database",
          [](const CleanupBench& m) { m.file(".npm/_cacache/d/PG_VERSION", 90, 3); },
          "liveDataStore"},
         {"folder replaced by a link",
          [](const CleanupBench& m) {
              EXPECT_EQ(std::rename((m.place / "home/.npm/_cacache/d").c_str(),
                                    (m.place / "home/documents").c_str()),
                        0);
              m.place.link("home/.npm/_cacache/d", m.place / "home/documents");
          },
          "unverifiedRule"}}};
    for (const Change& change : changes) {
        CleanupBench machine;
        machine.file(".npm/_cacache/d/x", 90, 5);
        const auto report = machine.scan({.betweenLooks = [&] { change.make(machine); }});
        ASSERT_TRUE(report);
        std::string told;
        if (!report->groups.empty()) {
            const SmartCleanupGroup& group = report->groups.front();
            told = group.candidates.empty() ? rawValue(group.heldBecause.begin()->first) : "safe";
        }
        EXPECT_EQ(told, change.stays) << change.what;
    }
}

TEST(SmartCleanupScan, CallsNothingSafeThatAHiddenProcessMayUse) {
    CleanupBench machine;
    machine.file(".gem/cache/owned", 90, 5); // by Ruby
    machine.file("Library/Caches/tool/free", 90, 5);
    platform::testing::FakeRunningProcesses some;
    some.answer->areOthersHidden = true;
    machine.processes = &some;
    const auto told = [&] {
        std::map<std::string, std::string> found;
        for (const auto& one : machine.scan({}).value().candidates()) {
            found[machine.below(one.observation.url)] = word(one.assessment.tier);
        }
        return found;
    };
    const auto folder =
        platform::FolderDescriptor::openRoot(machine.place / "home/Library/Caches/tool");
    const bool isProven = platform::fileUse(*folder, "free") == platform::FileUse::free;
    std::map<std::string, std::string> expected{
        {".gem/cache/owned", "review"}, {"Library/Caches/tool/free", isProven ? "safe" : "review"}};
    EXPECT_EQ(told(), expected);
    machine.volumes.answer->front().mountPath = "/from/outside";
    expected["Library/Caches/tool/free"] = "review";
    EXPECT_EQ(told(), expected);
}

TEST(SmartCleanupScan, FindsTheSameHoweverManyLookAtOnce) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    std::vector<std::string> safe;
    for (int i = 0; i < 1'200; ++i) {
        const std::string name = fmt::format(".npm/_cacache/{:02}/{:02}/{}", i % 7, i % 90, i);
        machine.file(name, i % 3 == 0 ? 1 : 90, static_cast<std::size_t>(i % 5));
        if (i % 3 != 0) safe.push_back(name);
    }
    machine.place.folder("home/.npm/_cacache/second");
    for (int i = 0; i < 200; ++i) { // threads meet at a file by its two names
        const std::string name = fmt::format(".npm/_cacache/first/{}", i);
        const std::string other = fmt::format(".npm/_cacache/second/{}", i);
        machine.file(name, 90, 1);
        machine.place.hardLink("home/" + other, "home/" + name);
        safe.insert(safe.end(), {name, other});
    }
    const auto report = machine.scan({});
    const auto again = machine.scan({});
    ASSERT_TRUE(report && again);
    ASSERT_EQ(report->groups.size(), 1U);
    EXPECT_EQ(report->groups, again->groups);
    EXPECT_EQ(report->groups[0].heldBecause,
              (decltype(report->groups[0].heldBecause){{EvidenceCode::insufficientAge, 400}}));
    const auto& found = report->groups[0].candidates;
    EXPECT_TRUE(
        std::ranges::is_sorted(found, [](const CleanupCandidate& a, const CleanupCandidate& b) {
            return std::pair(b.observation.byteCount, a.id()) <
                   std::pair(a.observation.byteCount, b.id());
        }));
    std::vector<std::string> names;
    for (const CleanupCandidate& one : found) names.push_back(machine.below(one.observation.url));
    std::ranges::sort(names);
    std::ranges::sort(safe);
    EXPECT_EQ(names, safe);
}

TEST(SmartCleanupScan, FindsTheSameInAHomeBehindALink) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    machine.file(".npm/_cacache/a/x", 90, 5);
    machine.file(".npm/_cacache/pg/PG_VERSION", 90, 3);
    machine.place.link("way", "home");
    machine.home = FileURL::folder(machine.place / "way");
    const auto report = machine.scan({});
    ASSERT_TRUE(report);
    ASSERT_EQ(report->candidates().size(), 1U);
    EXPECT_EQ(machine.below(report->candidates()[0].observation.url), ".npm/_cacache/a/x");
    EXPECT_EQ(report->groups[0].heldBecause,
              (decltype(report->groups[0].heldBecause){{EvidenceCode::liveDataStore, 1}}));
}

TEST(SmartCleanupScan, HoldsWhatWasUnpackedLately) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    machine.file(".npm/_cacache/x", 90, 5);
    const auto created =
        platform::fileMetadata(machine.place / "home/.npm/_cacache/x").value().created;
    if (!created) GTEST_SKIP() << "the file system keeps no creation dates";
    machine.now = created->adding(29 * secondsOfDay);
    machine.file(".npm/_cacache/x", 90, 5);
    const auto report = machine.scan({});
    EXPECT_TRUE(report->candidates().empty());
    EXPECT_EQ(report->groups.at(0).heldBecause,
              (decltype(report->groups[0].heldBecause){{EvidenceCode::insufficientAge, 1}}));
    machine.now = created->adding(30 * secondsOfDay + 1);
    EXPECT_EQ(machine.scan({})->safe().itemCount, 1U);
}

TEST(SmartCleanupScan, HoldsWhatIsOpenThoughNoPathInUseSaysSo) {
    CleanupBench machine;
    machine.file(".npm/_cacache/a/linked", 90, 5);
    machine.file(".npm/_cacache/a/quiet", 90, 5);
    machine.file(".npm/_cacache/b/read by one that hides", 90, 5);
    machine.place.hardLink("home/project", "home/.npm/_cacache/a/linked");
    std::FILE* other = std::fopen((machine.place / "home/project").c_str(), "re");
    std::FILE* hidden =
        std::fopen((machine.place / "home/.npm/_cacache/b/read by one that hides").c_str(), "re");
    ASSERT_TRUE(other != nullptr && hidden != nullptr);
    const auto folder = platform::FolderDescriptor::openRoot(machine.place / "home");
    const bool isTold = folder && platform::fileUse(*folder, "project") == platform::FileUse::inUse;
    const platform::testing::FakeRunningProcesses none;
    std::vector<std::string> found;
    std::uint64_t open = 0;
    machine.processes = &none;
    const auto report = machine.scan({});
    for (const auto& one : report->candidates())
        found.push_back(machine.below(one.observation.url));
    for (const auto& group : report->groups) {
        if (group.heldBecause.contains(EvidenceCode::openByProcess))
            open += group.heldBecause.at(EvidenceCode::openByProcess);
    }
    std::fclose(other);
    std::fclose(hidden);
    if (!isTold) GTEST_SKIP() << "the file system does not tell who has a file open";
    EXPECT_EQ(found, std::vector<std::string>{".npm/_cacache/a/quiet"});
    EXPECT_EQ(open, 2U);
    EXPECT_EQ(machine.scan({})->candidates().size(), 3U) << "once they are closed";
}

TEST(SmartCleanupScan, KeepsToItsBudgetAndTellsOfIt) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    for (int i = 0; i < 20; ++i) {
        machine.file(fmt::format(".gem/cache/{:02}", i), 90, 1);
        machine.file(fmt::format(".npm/_cacache/{:02}", i), 90, 1);
    }
    machine.file(".cache/node/late", 90, 1);
    machine.file(".bun/install/cache/a/b/c/d/x", 90, 1);
    const auto gapsOf = [](const SmartCleanupReport& report) {
        std::vector<std::string> told;
        for (const CoverageGap& gap : report.coverageGaps) {
            EXPECT_EQ(gap.reason, CoverageGapReason::scanBudgetExceeded);
            told.emplace_back(gap.url.lastComponent());
        }
        return told;
    };
    const auto few =
        machine.scan({.budget = {.entriesPerPlace = 10, .candidates = 1'000, .depth = 128}});
    ASSERT_TRUE(few);
    EXPECT_EQ(few->safe().itemCount, 22U);
    EXPECT_EQ(gapsOf(*few), (std::vector<std::string>{"_cacache", "cache"}));
    const auto shallow =
        machine.scan({.budget = {.entriesPerPlace = 100, .candidates = 30, .depth = 4}});
    ASSERT_TRUE(shallow);
    EXPECT_EQ(shallow->safe().itemCount, 30U);
    EXPECT_EQ(gapsOf(*shallow), (std::vector<std::string>{"d", "cache", "node"}))
        << "places that were not looked at any more are told";
}

TEST(SmartCleanupScan, EndsWhenItIsAskedToAndWhenNothingIsKnown) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench machine;
    machine.file(".npm/_cacache/x", 90, 5);
    std::stop_source early;
    early.request_stop();
    EXPECT_EQ(machine.scan({}, early.get_token()).error(),
              SmartCleanupScan::ScanError(CancellationError{}));
    std::stop_source between;
    EXPECT_EQ(machine.scan({.betweenLooks = [&] { between.request_stop(); }}, between.get_token())
                  .error(),
              SmartCleanupScan::ScanError(CancellationError{}));
    std::vector<SmartCleanupScan::Progress> told;
    EXPECT_TRUE(machine.scan({.progressInterval = 0}, {},
                             [&](const auto& progress) { told.push_back(progress); }));
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told.back().phase, SmartCleanupScan::Progress::Phase::confirming);
    EXPECT_EQ(told.back().currentPath, machine.place / "home/.npm/_cacache/x");

    machine.applications.answer = std::unexpected(SystemError{5});
    const auto unknown = machine.scan({});
    ASSERT_FALSE(unknown);
    EXPECT_EQ(unknown.error(), SmartCleanupScan::ScanError(SmartCleanupScan::ContextUnavailable{
                                   MissingPiece::applications}));
    machine.place.folder("home/.config/user-dirs.dirs"); // no list to read
    machine.applications.answer = std::vector<platform::RunningApplication>{};
    EXPECT_EQ(SmartCleanupScan::description(machine.scan({}).error()),
              "Tidyro could not find out which folders your desktop keeps your files in, since its "
              "list (user-dirs.dirs) cannot be read, so nothing was rated and nothing was touched. "
              "Correct that file and try again.");
}

TEST(SmartCleanupScan, LeavesOutWhatIsClosedOrMounted) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const auto told = testing::inMountNamespace([]() -> std::string {
        CleanupBench machine;
        machine.file(".npm/_cacache/mount/below", 90, 5);
        machine.file(".npm/_cacache/file", 90, 5);
        machine.file(".gem/cache/beside", 90, 5);
        if (!testing::bindMount(machine.place / "home/.gem/cache",
                                machine.place / "home/.npm/_cacache/mount") ||
            !testing::bindMount(machine.place / "home/.gem/cache/beside",
                                machine.place / "home/.npm/_cacache/file")) {
            return "cannot mount";
        }
        const auto report = machine.scan({});
        std::string found;
        for (const auto& one : report->candidates())
            found += machine.below(one.observation.url) + " ";
        for (const auto& gap : report->coverageGaps) found += rawValue(gap.reason);
        for (const char* mounted : {"home/.npm/_cacache/mount", "home/.npm/_cacache/file"}) {
            if (!testing::runQuietly("umount " + (machine.place / mounted)))
                return "cannot unmount";
        }
        return found;
    });
    EXPECT_TRUE(!told || *told == "cannot mount" ||
                *told == ".gem/cache/beside mountBoundaryExcludedmountBoundaryExcluded")
        << *told;

    const std::string closed = testing::asOrdinaryUser([] {
        CleanupBench machine;
        machine.file(".npm/_cacache/open", 90, 5);
        machine.file(".npm/_cacache/closed/x", 90, 5);
        machine.file(".gem/cache/x", 90, 5);
        machine.place.permissions("home/.npm/_cacache/closed", 0);
        machine.place.permissions("home/.gem", 0);
        const auto report = machine.scan({});
        std::string found;
        for (const auto& one : report->candidates()) found += machine.below(one.observation.url);
        for (const auto& gap : report->coverageGaps) {
            found += " " + machine.below(gap.url) + ":" + std::string(rawValue(gap.reason));
        }
        machine.place.permissions("home/.npm/_cacache/closed", 0700);
        machine.place.permissions("home/.gem", 0700);
        return found;
    });
    EXPECT_EQ(closed, ".npm/_cacache/open .gem:inaccessible .npm/_cacache/closed:inaccessible");
}

} // namespace
} // namespace tidyro
