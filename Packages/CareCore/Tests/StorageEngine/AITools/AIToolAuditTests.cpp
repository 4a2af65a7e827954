#include "StorageEngine/AITools/AIToolAuditor.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>

#include <sys/stat.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Platform/Testing/FakeRunningProcesses.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/AITools/AIToolSamples.h"
#include "StorageEngine/AITools/AIToolVersionState.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "Support/OtherCircumstances.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;

/// A home on the disk with an auditor for it. All files are a moment old; the audit is made as if
/// ten days had passed.
struct Audited {
    TemporaryFolder place;
    AIToolHomeDiscovery discovery{.userHome = FileURL::folder(place / "home")};
    platform::testing::FakeVolumes volumes =
        platform::testing::FakeVolumes::withOneAt(place.path());
    StaticToolActivityProvider activity{{}};
    ToolActivityProviding* provider = &activity;
    Timestamp now = Timestamp::now().adding(10 * AIToolAgePolicy::minAge);
    SafetyPolicyFacts machine = testing::quietMachine();
    bool hasContext = true;
    std::size_t maxEntries = AIToolWalker::maxEntries;

    Audited() {
        for (const char* marker : {"config.toml", "auth.json", "sessions/a.jsonl"}) {
            place.file(std::string("home/.codex/") + marker, "state");
        }
    }
    [[nodiscard]] AIToolHome home(AIToolID tool = AIToolID::codex,
                                  const char* name = "home/.codex") const {
        return discovery
            .validate(FileURL::folder(place / name), tool, AIToolHome::Source::conventional)
            .value();
    }
    [[nodiscard]] SafetyPolicyContext context() const { return SafetyPolicyContext(machine); }
    [[nodiscard]] std::expected<AIToolAuditReport, AIToolWalker::Error>
    audit(const AIToolHome& of, const CancelToken& cancel = {}) {
        const AIToolAuditor auditor(
            {.activityProvider = *provider,
             .volumes = volumes,
             .freshContext = [&]() -> std::shared_ptr<const SafetyPolicyContext> {
                 return hasContext ? std::make_shared<const SafetyPolicyContext>(context())
                                   : nullptr;
             },
             .maxEntries = maxEntries});
        return auditor.audit(of, now, cancel);
    }
};

/// "rule: path path; rule: path" of all that may go.
std::string eligible(const AIToolAuditReport& report) {
    std::string all;
    for (const AIToolRuleFinding& finding : report.ruleFindings) {
        if (finding.artifacts.empty()) continue;
        all += finding.ruleID + ":";
        for (const AIToolArtifact& artifact : finding.artifacts) all += " " + artifact.relativePath;
        all += "; ";
    }
    return all;
}

TEST(AIToolAudits, MeasureAHomeAndRebuildItsCandidates) {
    Audited made;
    made.place.file("home/.codex/cache/codex_apps_tools/a.json", "12345");
    made.place.file("home/.codex/cache/codex_apps_tools/b.json", "123");
    made.place.file("home/.codex/cache/codex_apps_tools/b.txt", "1");
    made.place.file("home/.codex/.tmp/git-abcdef/.git/HEAD", "ref");
    made.place.file("home/.codex/generated_images/a b\xff.png", "image");
    made.place.file("home/.cache/codex-runtimes/codex-runtime-install-abcdef/x", "1234567");
    const AIToolHome home = made.home();
    const auto report = made.audit(home).value();
    EXPECT_EQ(eligible(report), "codex-cache-apps-tools: cache/codex_apps_tools/a.json "
                                "cache/codex_apps_tools/b.json; "
                                "codex-tmp-git-scratch: .tmp/git-abcdef/.git/HEAD; "
                                "codex-generated-images: generated_images/a b\xff.png; "
                                "codex-runtime-install-staging: codex-runtime-install-abcdef/x; ");
    EXPECT_EQ(report.fileCount, 8U);
    EXPECT_EQ(report.totalLogicalByteCount, 32U);
    EXPECT_EQ(report.totalIncludingStoresByteCount(), 39U);
    EXPECT_EQ(report.eligibleByteCount(), 23U);
    EXPECT_EQ(report.eligibleDisposableByteCount(), 18U);

    const AIToolClassifier classifier({.minimumAge = report.minimumAge,
                                       .context = AIToolClassifier::context(home, made.context()),
                                       .activity = {},
                                       .now = made.now});
    FileObserver observer(home.userHome, made.volumes);
    std::set<std::string> keys;
    for (const AIToolRuleFinding& finding : report.ruleFindings) {
        for (const AIToolArtifact& artifact : finding.artifacts) {
            const FileURL url = finding.url(artifact);
            const auto rated =
                classifier.classify(observer.observation(url).value(), home.locate(url).value(),
                                    {.statusChangeDate = AIToolClassifier::statusChangeDate(url)});
            EXPECT_EQ(report.candidate(artifact, finding), rated.candidate) << url.text();
            EXPECT_TRUE(keys.insert(finding.key(artifact)).second);
        }
    }
    EXPECT_EQ(keys.size(), 5U);
}

/// "path decision" of what the audit keeps a summary of, for comparing.
std::string childrenOf(const std::vector<AIToolPathSummary>& summaries) {
    std::string all;
    for (const AIToolPathSummary& each : summaries) {
        all += fmt::format(
            "{} {} {}/{} {} {}{}\n", each.relativePath, rawValue(each.role), each.fileCount,
            each.directoryCount, each.logicalByteCount, each.eligibleByteCount,
            each.inaccessibleCount > 0 ? fmt::format(" -{}", each.inaccessibleCount) : "");
    }
    return all;
}

TEST(AIToolAudits, AddUpByChildren) {
    Audited made;
    made.place.file("home/.codex/cache/codex_apps_tools/a.json", "12345");
    made.place.file("home/.codex/cache/loose", "123");
    made.place.folder("home/.codex/cache/empty");
    made.place.link("home/.codex/cache/away", "/etc");
    made.place.file("home/.codex/notes/x", std::string(1'000, 'x'));
    made.place.file("home/.codex/packages/standalone/other", "1");
    made.place.file("home/.cache/codex-runtimes/codex-primary-runtime/x", "12");
    const auto report = made.audit(made.home()).value();
    EXPECT_EQ(childrenOf(report.allChildren), "notes unlisted 1/1 1000 0\n"
                                              "cache candidateRoot 3/3 12 5\n"
                                              "auth.json protectedState 1/0 5 0\n"
                                              "config.toml protectedState 1/0 5 0\n"
                                              "sessions protectedState 1/1 5 0\n"
                                              "packages candidateRoot 1/2 1 0\n");
    EXPECT_EQ(childrenOf(report.expandedChildren.at("cache")),
              "cache/codex_apps_tools candidateRoot 1/1 5 5\n"
              "cache/away candidateRoot 1/0 4 0\n"
              "cache/loose candidateRoot 1/0 3 0\n"
              "cache/empty candidateRoot 0/1 0 0\n");
    EXPECT_TRUE(report.expandedChildren.at("cache")[1].isSymbolicLink);
    EXPECT_EQ(childrenOf(report.externalStores), ".cache/codex-runtimes externalStore 1/2 2 0\n");
    const auto count = [&](AIToolDecision decision) {
        return report.decisionTallies.at(decision).count;
    };
    using enum AIToolDecision;
    EXPECT_EQ(count(symbolicLink), 1U) << "and nothing of what it leads to";
    EXPECT_EQ(count(currentRuntime), 2U);
    EXPECT_EQ(count(unrecognizedInsideAllowedRoot), 4U) << "the root, two folders and a file";
    EXPECT_EQ(count(eligibleDisposable), 1U);
    EXPECT_EQ(report.groupTotals.at(AIToolArtifactGroup::disposableCache).logicalByteCount, 5U);

    made.maxEntries = 6;
    const auto cut = made.audit(made.home()).value();
    EXPECT_TRUE(cut.isTruncated);
    EXPECT_EQ(cut.fileCount + cut.directoryCount, 6U);
    EXPECT_EQ(cut.gaps.front().reason, CoverageGapReason::scanBudgetExceeded);
    std::stop_source stop;
    stop.request_stop();
    const auto stopped = made.audit(made.home(), stop.get_token());
    ASSERT_FALSE(stopped);
    EXPECT_TRUE(std::holds_alternative<CancellationError>(stopped.error()));
}

TEST(AIToolAudits, TellWhatToDoAboutALargeLog) {
    Audited made;
    for (const char* name : {"logs_2.sqlite", "state_5.sqlite", "sessions/logs_3.sqlite"}) {
        const std::string path = std::string("home/.codex/") + name;
        made.place.file(path, "");
        fs::resize_file(made.place / path, AIToolAuditReport::minOversizedBytes); // a hole
    }
    made.place.file("home/.codex/logs_1.sqlite", "small");
    const AIToolHome home = made.home();
    const auto report = made.audit(home).value();
    ASSERT_EQ(report.oversizedFiles.size(), 1U);
    EXPECT_EQ(report.oversizedFiles[0].relativePath, "logs_2.sqlite");
    EXPECT_TRUE(report.oversizedFiles[0].remedy.contains("start it once"));
    EXPECT_EQ(eligible(report), "");

    const FileURL log = home.url.appending("logs_2.sqlite");
    const AIToolClassifier classifier({.minimumAge = report.minimumAge,
                                       .context = AIToolClassifier::context(home, made.context()),
                                       .activity = {},
                                       .now = made.now});
    FileObserver observer(home.userHome, made.volumes);
    const std::string why =
        classifier.why(observer.observation(log).value(), home.locate(log).value(), {});
    EXPECT_TRUE(why.contains("\"logs_2.sqlite\" stays") && why.contains("start it once")) << why;
}

TEST(AIToolAudits, HoldWhatSomethingSpeaksAgainst) {
    Audited made;
    const std::string logs = "home/.claude/debug/";
    for (const char* marker : {"settings.json", "CLAUDE.md"}) {
        made.place.file(std::string("home/.claude/") + marker);
    }
    made.place.file(logs + "a", "1");
    made.place.file("home/.claude/paste-cache/b", "12");
    const auto found = [&] {
        const auto report = made.audit(made.home(AIToolID::claudeCode, "home/.claude")).value();
        std::string all = eligible(report);
        for (const AIToolRuleFinding& finding : report.ruleFindings) {
            if (finding.keptRecentCount > 0) all += " recent:" + finding.ruleID;
            if (finding.keptActiveCount > 0) all += " active:" + finding.ruleID;
        }
        return all;
    };
    const std::string both = "claude-debug-logs: debug/a; claude-paste-cache: paste-cache/b; ";
    EXPECT_EQ(found(), both);
    made.activity.value.openFilePaths = {made.place / logs + "a-2", made.place / logs + "a"};
    EXPECT_EQ(found(), "claude-paste-cache: paste-cache/b;  active:claude-debug-logs");
    made.activity.value = {.workingDirectories = {made.place / logs + "deep/er"}};
    EXPECT_EQ(found(), "claude-paste-cache: paste-cache/b;  active:claude-debug-logs")
        << "whoever works in a root may reach for all of it";
    made.activity.value = {.isIncomplete = true};
    EXPECT_EQ(found(), " active:claude-debug-logs active:claude-paste-cache");
    made.activity.value = {};

    made.hasContext = false;
    EXPECT_EQ(found(), "") << "nothing is known of the machine";
    made.hasContext = true;
    const auto volumes = std::exchange(made.volumes.answer, std::unexpected(SystemError{EIO}));
    EXPECT_EQ(found(), "") << "nor of its disks";
    made.volumes.answer = volumes;

    made.now = Timestamp::now().adding(-AIToolAgePolicy::minAge);
    EXPECT_EQ(found(), "") << "a clock that went back";
    made.now = Timestamp::now().adding(60);
    EXPECT_EQ(found(), " recent:claude-debug-logs recent:claude-paste-cache");
    made.now = made.now.adding(10 * AIToolAgePolicy::minAge);

    made.place.hardLink(logs + "twice", "home/.claude/paste-cache/b");
    EXPECT_EQ(found(), "claude-debug-logs: debug/a; ");
    fs::remove(made.place / logs + "twice");
    made.place.folder(logs + ".git");
    EXPECT_EQ(found(), "claude-paste-cache: paste-cache/b; ") << "somebody's project";
    fs::remove(made.place / logs + ".git");
    made.place.file(logs + "CURRENT");
    made.place.file(logs + "MANIFEST-000001");
    EXPECT_EQ(found(), "claude-paste-cache: paste-cache/b; ") << "a database made of files";
}

TEST(AIToolAudits, TakeWhoeverHasTheHomeOpenForTheApplication) {
    Audited made;
    made.place.file("real/Code/Cache/Cache_Data/f_0", "1");
    made.place.file("real/Code/Crashpad/completed/a.dmp", "1");
    made.place.folder("real/Code/User");
    made.place.file("real/Code/machineid");
    made.place.link("home/.config", made.place / "real");
    const auto found = [&] {
        return eligible(made.audit(made.home(AIToolID::vsCode, "home/.config/Code")).value());
    };
    const std::string report = "vsCode-crash-reports: Crashpad/completed/a.dmp; ";
    EXPECT_EQ(found(), "vsCode-web-cache: Cache/Cache_Data/f_0; " + report);
    // Processes have their files by real paths.
    made.activity.value.openFilePaths = {made.place / "real/Code/User/settings.json"};
    EXPECT_EQ(found(), report);
    made.activity.value.openFilePaths = {made.place / "real/Code/Crashpad/completed/a.dmp"};
    EXPECT_EQ(found(), "");
    made.activity.value = {.executablePaths = {"/usr/share/code/code"}};
    EXPECT_EQ(found(), report);
}

TEST(AIToolAudits, ShareOneLookAtTheProcesses) {
    Audited made;
    platform::testing::FakeRunningProcesses processes;
    processes.answer->unreadable = 3;
    LiveToolActivityProvider live(processes);
    double clock = 100;
    CachedToolActivityProvider cached(live, [&] { return Timestamp::since1970(clock); });
    made.provider = &cached;
    EXPECT_EQ(made.audit(made.home()).value().unreadableProcessCount, 3U);
    clock += 1.9;
    EXPECT_TRUE(made.audit(made.home()));
    EXPECT_EQ(processes.timesAsked, 1);
    clock += 0.2;
    EXPECT_TRUE(made.audit(made.home()));
    EXPECT_EQ(processes.timesAsked, 2);
}

TEST(AIToolAudits, CountAStoreOnce) {
    Audited made;
    made.place.file("home/.cache/codex-runtimes/codex-runtime-install-abcdef/x", "123");
    // A custom home that holds the store, and one that lies in it.
    made.place.file("home/.cache/mine/config.toml", "1");
    made.place.folder("home/.cache/mine/sessions");
    fs::rename(made.place / "home/.cache/codex-runtimes", made.place / "home/.cache/mine/store");
    made.place.link("home/.cache/codex-runtimes", made.place / "home/.cache/mine/store");
    EXPECT_EQ(eligible(made.audit(made.home(AIToolID::codex, "home/.cache/mine")).value()), "")
        << "a store that is a link is none, and what it leads to is not listed";
    fs::remove(made.place / "home/.cache/codex-runtimes");
    fs::rename(made.place / "home/.cache/mine/store", made.place / "home/.cache/codex-runtimes");

    const char* inside = "home/.cache/codex-runtimes/codex-runtime-install-abcdef/home";
    made.place.file(std::string(inside) + "/config.toml", "1");
    made.place.file(std::string(inside) + "/sessions/a.jsonl", "12");
    const AIToolHome home = made.home(AIToolID::codex, inside);
    const auto report = made.audit(home).value();
    EXPECT_EQ(report.totalIncludingStoresByteCount(), 6U);
    EXPECT_EQ(eligible(report), "codex-runtime-install-staging: codex-runtime-install-abcdef/x; ");
    EXPECT_FALSE(home.locate(FileURL::file(made.place / inside + "/sessions/a.jsonl"))
                     ->place.storeIndex.has_value())
        << "the home's own rules hold in it";
}

/// All that the classifier lets go below a home and its stores, asked item by item.
std::set<std::string> eligibleOneByOne(const Audited& made, const AIToolHome& home) {
    const AIToolClassifier classifier({.minimumAge = AIToolAgePolicy::minAge,
                                       .context = AIToolClassifier::context(home, made.context()),
                                       .activity = {},
                                       .now = made.now});
    std::vector<FileURL> roots{home.url};
    for (const auto& [index, store] : home.validExternalStores()) roots.push_back(store);
    std::set<std::string> all;
    for (const FileURL& root : roots) {
        for (const auto& item : fs::recursive_directory_iterator(root.path())) {
            const FileURL url = FileURL::file(item.path().string());
            const AIToolLocation at = home.locate(url).value();
            const auto versions = AIToolVersionState::forBuildFolder(at, {});
            FileObserver observer(home.userHome, made.volumes);
            const auto rated =
                classifier.classify(observer.observation(url).value(), at,
                                    {.isSymbolicLink = item.is_symlink(),
                                     .versionState = versions ? &*versions : nullptr,
                                     .statusChangeDate = AIToolClassifier::statusChangeDate(url)});
            if (rated.candidate) all.insert(url.path());
        }
    }
    return all;
}

TEST(AIToolAudits, LetGoOfEachToolWhatItsTablesSay) {
    struct Row {
        AIToolID tool;
        std::vector<const char*> further; ///< files beside the samples, below the user's home
        const char* eligible;             ///< all of it
    };
    using enum AIToolID;
    const std::vector<Row> rows{
        {codex,
         {".codex/packages/standalone/releases/0.9.0/bin/codex",
          ".codex/packages/standalone/releases/0.10.0/bin/codex",
          ".codex/cache/codex_apps_tools/sessions/a.json", ".codex/generated_images/AUTH.JSON"},
         "codex-cache-apps-tools: cache/codex_apps_tools/x.json; "
         "codex-cache-apps-server-info: cache/codex_apps_server_info/x.json; "
         "codex-cache-remote-plugin-catalog: cache/remote_plugin_catalog/x.json; "
         "codex-tmp-git-scratch: .tmp/git-aaaaaa/deep/x; "
         "codex-generated-images: generated_images/deep/x.gif; "
         "codex-visualizations: visualizations/deep/x.gif; "
         "codex-archived-sessions: archived_sessions/deep/x.jsonl; "
         "codex-superseded-releases: packages/standalone/releases/0.9.0/bin/codex; "
         "codex-runtime-install-staging: codex-runtime-install-aaaaaa/deep/x; "},
        {claudeCode,
         {".local/share/claude/versions/1.9", ".local/share/claude/versions/1.9-beta",
          ".local/share/claude/versions/1.10", ".claude/debug/a.pid", ".claude/Debug/x"},
         "claude-debug-logs: debug/deep/x; claude-paste-cache: paste-cache/deep/x; "
         "claude-image-cache: image-cache/deep/x; "
         "claude-shell-snapshots: shell-snapshots/snapshot-x; "
         "claude-removed-plugins: plugins/.trash/deep/x; claude-legacy-statsig: statsig/deep/x; "
         "claude-changelog-cache: cache/changelog.md; "
         "claude-superseded-versions: 1.9 1.9-beta; "
         "claude-mcp-logs: x/mcp-logs-x/x.jsonl; "},
        {vsCode,
         {".config/Code/Cache/Cache_Data/index-dir/the-real-index_0"},
         "vsCode-web-cache: Cache/Cache_Data/x_0; vsCode-code-cache: Code Cache/x/x_0; "
         "vsCode-extension-downloads: CachedExtensionVSIXs/xx; "
         "vsCode-crash-reports: Crashpad/completed/x.dmp; "},
        {cursor,
         {},
         "cursor-web-cache: Cache/Cache_Data/x_0; cursor-code-cache: Code Cache/x/x_0; "
         "cursor-extension-downloads: CachedExtensionVSIXs/xx; "
         "cursor-crash-reports: Crashpad/completed/x.dmp; "},
        {claudeDesktop,
         {".config/Claude/CachedData/x/y"},
         "claudeDesktop-web-cache: Cache/Cache_Data/x_0; "
         "claudeDesktop-code-cache: Code Cache/x/x_0; "
         "claudeDesktop-crash-reports: Crashpad/completed/x.dmp; "},
        {geminiCLI, {".gemini/tmp/hash/logs.json", ".gemini/logs/x.log"}, ""},
        {copilotCLI, {".copilot/logs/deep/x.log"}, "copilot-logs: logs/x.log; "},
        {openCode, {".local/share/opencode/log/x.log.1"}, "opencode-logs: log/x.log; "},
        {aider, {".aider/caches/x.txt"}, "aider-caches: caches/x.json; "},
    };
    for (const Row& row : rows) {
        Audited made;
        const AIToolLayout& layout = AIToolLayouts::layout(row.tool, OperatingSystem::linux_);
        if (AIToolLayouts::layout(row.tool) != layout) GTEST_SKIP() << "made for Linux";
        const std::string folder = "home/" + layout.homeRelativePath + "/";
        const auto addSamples = [&](const std::string& root,
                                    std::span<const AIToolRecognizer> rules) {
            for (const AIToolRecognizer& rule : rules) {
                made.place.file(root + "/" + testing::samplePath(rule), rule.ruleID);
            }
        };
        for (const auto& root : layout.candidateRoots) {
            addSamples(folder + root.relativePath, root.recognizers);
        }
        for (const auto& store : layout.externalStores) {
            addSamples("home/" + store.relativeToUserHome, store.recognizers);
        }
        for (const char* file : row.further) made.place.file(std::string("home/") + file, file);
        const auto addNames = [&](const auto& names) {
            for (const std::string& name : names) {
                if (!fs::exists(made.place / folder + name)) made.place.file(folder + name, name);
            }
        };
        addNames(layout.protectedNames);
        addNames(layout.conversationTopLevelNames);
        addNames(layout.homeMarkers);
        made.place.folder("home/.local/bin");
        made.place.folder("home/.codex/packages/standalone");
        made.place.link("home/.local/bin/claude", "../share/claude/versions/1.10");
        made.place.link("home/.codex/packages/standalone/current", "releases/0.10.0");

        const AIToolHome home = made.home(row.tool, folder.c_str());
        const auto report = made.audit(home).value();
        EXPECT_EQ(eligible(report), row.eligible);
        std::set<std::string> found;
        for (const AIToolRuleFinding& finding : report.ruleFindings) {
            for (const AIToolArtifact& each : finding.artifacts) {
                found.insert(finding.url(each).path());
            }
        }
        EXPECT_EQ(found, eligibleOneByOne(made, home)) << layout.layoutVersion;
    }
}

TEST(AIToolAudits, StopWhenTheHomeIsAnotherFolder) {
    Audited made;
    const AIToolHome home = made.home();
    const auto code = [&] {
        const auto audited = made.audit(home);
        return audited ? 0 : std::get<SystemError>(audited.error()).code;
    };
    EXPECT_EQ(code(), 0);
    fs::rename(made.place / "home/.codex", made.place / "home/old");
    EXPECT_EQ(code(), ENOENT);
    made.place.link("home/.codex", "old");
    EXPECT_TRUE(code() == ELOOP || code() == ENOTDIR) << "even if it is the very same folder";
    fs::remove(made.place / "home/.codex");
    made.place.file("home/.codex/config.toml");
    EXPECT_EQ(code(), ESTALE);
}

TEST(AIToolWalks, TellOfWhatTheyMayNotRead) {
    const std::string seen = testing::asOrdinaryUser([] {
        const TemporaryFolder place;
        place.file("home/closed/x");
        place.file("home/named/x");
        place.folder("home/named/folder");
        place.file("home/open/unread");
        place.permissions("home/open/unread", 0);
        place.permissions("home/closed", 0);
        place.permissions("home/named", 0444); // names can be listed, and nothing else
        std::string all;
        const auto coverage = AIToolWalker::walk(FileURL::folder(place / "home"),
                                                 [&](const AIToolWalkEntry& entry) {
                                                     all += entry.components.back() +
                                                            (entry.isInaccessible ? "!" : "") +
                                                            (entry.isReadable ? " " : "? ");
                                                 },
                                                 {});
        for (const CoverageGap& gap : coverage.value().gaps) {
            all += "\n" + std::string(rawValue(gap.reason)) + " " +
                   std::string(gap.url.lastComponent());
        }
        place.permissions("home/closed", 0755);
        place.permissions("home/named", 0755);
        return all;
    });
    EXPECT_EQ(seen, "closed!? named x? folder!? open unread? \n"
                    "inaccessible closed\nmetadataUnavailable named\ninaccessible folder");
}

TEST(AIToolWalks, StayOnTheirDevice) {
    const TemporaryFolder place;
    place.file("other/x");
    place.file("file");
    place.file("home/mounted/beneath");
    place.file("home/covered");
    const auto seen = testing::inMountNamespace([&]() -> std::string {
        if (!testing::bindMount(place / "other", place / "home/mounted") ||
            !testing::bindMount(place / "file", place / "home/covered")) {
            return "no mount";
        }
        std::string all;
        const auto coverage = AIToolWalker::walk(
            FileURL::folder(place / "home"),
            [&](const AIToolWalkEntry& entry) { all += entry.components.back(); }, {});
        for (const CoverageGap& gap : coverage.value().gaps) {
            all += std::string(rawValue(gap.reason)) + " ";
        }
        return all;
    });
    if (!seen || *seen == "no mount") GTEST_SKIP() << "needs mounts";
    EXPECT_EQ(*seen, "mountBoundaryExcluded mountBoundaryExcluded ");
}

TEST(AIToolWalks, GoAsDeepAsTheFoldersDo) {
    const TemporaryFolder place;
    constexpr int levels = 300; // with a path longer than the system takes
    platform::FolderDescriptor at = *platform::FolderDescriptor::openRoot(place.path());
    for (int i = 0; i < levels; ++i) {
        ASSERT_EQ(::mkdirat(at.fd(), "a folder of the deep", 0755), 0);
        ASSERT_EQ(::mkdirat(at.fd(), "beside", 0755), 0); // to be visited on the way back
        at = *at.open("a folder of the deep");
    }
    const std::string seen = testing::inChild([&] {
        constexpr unsigned few = 80;
        if (!testing::isSanitized() && !testing::leaveOpenFiles(few)) return std::string("limit");
        std::size_t deepest = 0;
        std::size_t beside = 0;
        const auto coverage = AIToolWalker::walk(FileURL::folder(place.path()),
                                                 [&](const AIToolWalkEntry& entry) {
                                                     deepest =
                                                         std::max(deepest, entry.components.size());
                                                     if (entry.components.back() == "beside")
                                                         ++beside;
                                                 },
                                                 {});
        return fmt::format("{} {} {} {}", deepest, beside, coverage->entryCount,
                           coverage->gaps.size());
    });
    EXPECT_EQ(seen, "300 300 600 0");
}

} // namespace
} // namespace tidyro
