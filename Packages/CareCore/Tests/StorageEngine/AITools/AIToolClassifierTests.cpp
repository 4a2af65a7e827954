#include "StorageEngine/AITools/AIToolClassifier.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/PathText.h"
#include "StorageEngine/AITools/AIToolSamples.h"

namespace tidyro {
namespace {

constexpr double day = 86'400;
const Timestamp now = Timestamp::since1970(1'800'000'000.0);

SafetyPolicyContext machine() {
    return SafetyPolicyContext({.currentUserID = 501,
                                .internalLocalVolumeIdentifiers = {"disk"},
                                .activeApplicationRoots = {},
                                .additionalProtectedRoots = {},
                                .activelyGrowingPaths = {},
                                .openByProcessPaths = {}});
}

/// An entry of a home that exists in this test only. It is an old file that nothing speaks against.
struct Rated {
    AIToolID tool;
    OperatingSystem system = OperatingSystem::linux_;
    FileURL userHome = FileURL::folder("/home/ada");
    double age = 400 * day;
    double changeAge = 400 * day;
    FileKind kind = FileKind::regularFile;
    AIToolClassifier::Entry entry{};
    ToolActivitySnapshot activity{};
    bool isAppRunning = false;
    double minimumAge = day;
    std::uint64_t linkCount = 1;
    std::uint32_t owner = 501;
    bool isReadable = true;
    bool isInRepository = false;
    std::size_t store = 0;

    mutable std::string why{};

    [[nodiscard]] const AIToolLayout& layout() const { return AIToolLayouts::layout(tool, system); }
    /// "store:" stands for one of the tool's external stores.
    [[nodiscard]] AIToolClassification of(std::string_view name) const {
        const FileURL home = userHome.appendingFolder(layout().homeRelativePath);
        const bool isInStore = name.starts_with("store:");
        const FileURL root =
            isInStore ? userHome.appendingFolder(layout().externalStores[store].relativeToUserHome)
                      : home;
        const std::string_view below = isInStore ? name.substr(6) : name;
        AIToolLocation at{.home = {.tool = tool,
                                   .url = home,
                                   .deviceID = 1,
                                   .inode = 2,
                                   .source = AIToolHome::Source::conventional,
                                   .userHome = userHome},
                          .place = {},
                          .rootURL = root,
                          .components = {}};
        if (isInStore) at.place.storeIndex = store;
        for (const std::string_view each : path::components(below)) {
            at.components.emplace_back(each);
        }
        const FileObservation observation{.id = {std::string(name)},
                                          .url = root.appending(below),
                                          .kind = kind,
                                          .byteCount = 10,
                                          .creationDate = now.adding(-age),
                                          .modificationDate = now.adding(-age),
                                          .ownerUserID = owner,
                                          .volumeIdentifier = SharedText("disk"),
                                          .isReadable = isReadable,
                                          .isCloudPlaceholder = false,
                                          .isInProjectRepository = isInRepository,
                                          .isBackupArtifact = false,
                                          .linkCount = linkCount};
        const AIToolClassifier classifier({.minimumAge = minimumAge,
                                           .context = AIToolClassifier::context(at.home, machine()),
                                           .activity = activity,
                                           .now = now,
                                           .isToolAppRunning = isAppRunning,
                                           .layouts = AIToolLayouts::all(system)});
        AIToolClassifier::Entry asked = entry;
        asked.statusChangeDate = now.adding(-changeAge);
        why = classifier.why(observation, at, asked);
        return classifier.classify(observation, at, asked);
    }
    [[nodiscard]] std::string_view decision(std::string_view name) const {
        return rawValue(of(name).decision);
    }
};

TEST(AIToolClassifier, LetsGoOnlyWhatARuleRecognises) {
    struct Row {
        AIToolID tool;
        const char* path;
        const char* decision;
        const char* rule = "";
    };
    using enum AIToolID;
    const std::vector<Row> rows{
        {codex, "cache/codex_apps_tools/a.json", "eligibleDisposable", "codex-cache-apps-tools"},
        {codex, "cache/codex_apps_tools/a.JSON", "eligibleDisposable", "codex-cache-apps-tools"},
        {codex, "cache/codex_apps_tools/a.txt", "unrecognizedInsideAllowedRoot"},
        {codex, "cache/codex_apps_tools/b/a.json", "unrecognizedInsideAllowedRoot"},
        {codex, "cache/codex_apps_tools", "unrecognizedInsideAllowedRoot"},
        {codex, "cache", "unrecognizedInsideAllowedRoot"},
        {codex, "cache/codex_apps_tools/a.json-journal", "database"},
        {codex, "cache/remote_plugin_catalog/a.db.json/b.json", "unrecognizedInsideAllowedRoot"},
        {codex, "Cache/codex_apps_tools/a.json", "outsideAllowlist"},
        {codex, ".tmp/git-abcdef/objects/aa/bb", "eligibleDisposable", "codex-tmp-git-scratch"},
        {codex, ".tmp/git-abcdef/index.lock", "lockOrStaging"},
        {codex, ".tmp/git-abcdef/lock/x", "lockOrStaging"},
        {codex, ".tmp/git-abcdef/x.sqlite/y", "database"},
        {codex, ".tmp/git-abcdefg/objects", "unrecognizedInsideAllowedRoot"},
        {codex, ".tmp/plugins-2/git-abcdef/x", "lockOrStaging"},
        {codex, "tmp/arg0/x", "lockOrStaging"},
        {codex, "tmp/other", "unrecognizedInsideAllowedRoot"},
        {codex, "generated_images/a/b.PNG", "eligibleForReview", "codex-generated-images"},
        {codex, "generated_images/a/b.txt", "unrecognizedInsideAllowedRoot"},
        {codex, "archived_sessions/x.jsonl", "eligibleForReview", "codex-archived-sessions"},
        {codex, "archived_sessions/x.jsonl.zst", "eligibleForReview", "codex-archived-sessions"},
        {codex, "archived_sessions/x.zst", "unrecognizedInsideAllowedRoot"},
        {codex, "generated_images/a\nb\xff.png", "eligibleForReview", "codex-generated-images"},
        {codex, ".tmp/git-abcdef/x.sqlite\n", "database"},
        {codex, ".tmp/git-abcdef/X.LOCK", "lockOrStaging"},
        {codex, ".tmp/git-\u00e4bcde/x", "eligibleDisposable", "codex-tmp-git-scratch"},
        {codex, ".tmp/git-\u00e4bcdef/x", "unrecognizedInsideAllowedRoot"},
        {codex, ".tmp/PLUGINS/git-abcdef/x", "lockOrStaging"},
        {codex, "generated_images/a.png/b", "unrecognizedInsideAllowedRoot"},
        {codex, "sessions/2026/x.jsonl", "namedProtectedState"},
        {codex, "auth.json", "namedProtectedState"},
        {codex, "AUTH.JSON", "namedProtectedState"},
        {codex, "Sessions/2026/x.jsonl", "namedProtectedState"},
        {codex, "\uff21uth.json", "namedProtectedState"}, // by "*.json"
        {codex, "\uff33essions/x", "outsideAllowlist"},
        {codex, "state_5.sqlite-wal", "namedProtectedState"},
        {codex, "unknown/x", "outsideAllowlist"},
        {codex, "", "outsideAllowlist"},
        {codex, "packages/standalone/releases/0.1.0/codex", "currentRuntime"},
        {codex, "packages/standalone/current", "outsideAllowlist"},
        {codex, "store:codex-runtime-install-abcdef/x/y", "eligibleDisposable",
         "codex-runtime-install-staging"},
        {codex, "store:codex-primary-runtime/bin/x", "currentRuntime"},
        {codex, "store:x.lock", "lockOrStaging"},
        {codex, "store:other", "unrecognizedInsideAllowedRoot"},
        {claudeCode, "projects/p/x.jsonl", "namedProtectedState"},
        {claudeCode, "plugins/cache/x", "namedProtectedState"},
        {claudeCode, "plugins/.trash/p/x", "eligibleDisposable", "claude-removed-plugins"},
        {claudeCode, "plugins/.Trash/p/x", "namedProtectedState"},
        {claudeCode, "debug/a.txt", "eligibleDisposable", "claude-debug-logs"},
        {claudeCode, "debug/a.pid", "lockOrStaging"},
        {claudeCode, "shell-snapshots/snapshot-zsh.sh", "eligibleDisposable",
         "claude-shell-snapshots"},
        {claudeCode, "shell-snapshots/other.sh", "unrecognizedInsideAllowedRoot"},
        {claudeCode, "cache/changelog.md", "eligibleDisposable", "claude-changelog-cache"},
        {claudeCode, "cache/other.md", "unrecognizedInsideAllowedRoot"},
        {claudeCode, "statsig/session_id.1", "eligibleDisposable", "claude-legacy-statsig"},
        {claudeCode, "store:1.2.3", "currentRuntime"},
        {vsCode, "Cache/Cache_Data/f_00000a_0", "eligibleDisposable", "vsCode-web-cache"},
        {vsCode, "Cache/Cache_Data/index", "lockOrStaging"},
        {vsCode, "Cache/No_Cache/f_0", "outsideAllowlist"},
        {vsCode, "Code Cache/js/a_0", "eligibleDisposable", "vsCode-code-cache"},
        {vsCode, "Code Cache/js/index", "unrecognizedInsideAllowedRoot"},
        {vsCode, "CachedData/abc/chrome/x", "currentRuntime"},
        {vsCode, "CachedExtensionVSIXs/pub.ext-1.0.0", "eligibleDisposable",
         "vsCode-extension-downloads"},
        {vsCode, "CachedExtensionVSIXs/.trash/x", "lockOrStaging"},
        {vsCode, "Crashpad/completed/a.dmp", "eligibleDisposable", "vsCode-crash-reports"},
        {vsCode, "Crashpad/pending/a.dmp", "outsideAllowlist"},
        {vsCode, "User/globalStorage/state.vscdb", "namedProtectedState"},
        {vsCode, "agentSessionData/x", "conversationOrHistory"},
        {vsCode, ".hidden", "namedProtectedState"},
        {claudeDesktop, "CachedData/abc/x", "outsideAllowlist"},
        {claudeDesktop, "claude-code-sessions/x.txt", "conversationOrHistory"},
        {claudeDesktop, "Cache/Cache_Data/a_s", "eligibleDisposable", "claudeDesktop-web-cache"},
        {geminiCLI, "tmp/hash/logs.json", "conversationOrHistory"},
        {copilotCLI, "logs/process-1.log", "eligibleDisposable", "copilot-logs"},
        {copilotCLI, "session-state/x.jsonl", "conversationOrHistory"},
        {openCode, "log/2026.log", "eligibleDisposable", "opencode-logs"},
        {openCode, "storage/session/x.json", "conversationOrHistory"},
        {openCode, "snapshot/x", "conversationOrHistory"},
        {aider, "caches/models.json", "eligibleDisposable", "aider-caches"},
        {aider, "oauth-keys.env", "namedProtectedState"},
    };
    for (const OperatingSystem system : {OperatingSystem::linux_, OperatingSystem::macOS}) {
        for (const Row& row : rows) {
            const Rated rated{.tool = row.tool, .system = system};
            const AIToolClassification found = rated.of(row.path);
            EXPECT_EQ(rawValue(found.decision), row.decision) << row.path;
            EXPECT_EQ(found.recognizerID.value_or(""), row.rule) << row.path;
            const bool isEligible = std::string_view(row.decision).starts_with("eligible");
            EXPECT_EQ(found.candidate.has_value(), isEligible) << row.path;
            if (isEligible) {
                EXPECT_EQ(found.candidate->observation.url.path().find(
                              found.candidate->authorization->rootURL().path() + "/"),
                          0U);
            }
        }
    }
}

/// In capitals, as a disk may have it that takes both for one name.
std::string capitals(std::string_view name) {
    std::string made(name);
    std::ranges::transform(made, made.begin(), [](char byte) {
        return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 'a' + 'A') : byte;
    });
    return made;
}

struct SampledRoot {
    std::string prefix; ///< as `Rated::of` takes it
    std::span<const AIToolRecognizer> rules;
    std::span<const std::string> protectedChildren;
    std::string_view protectedDecision;
};

void checkSamples(const Rated& rated, const SampledRoot& root) {
    for (const AIToolRecognizer& rule : root.rules) {
        const std::string path = root.prefix + testing::samplePath(rule);
        const std::string eligible = rule.group == AIToolArtifactGroup::disposableCache
                                         ? "eligibleDisposable"
                                         : "eligibleForReview";
        EXPECT_EQ(rated.decision(path), eligible) << path;
        EXPECT_EQ(rated.of(path).recognizerID, rule.ruleID) << path;
        EXPECT_EQ(rated.decision(path + "-wal"), "database") << path;
        EXPECT_EQ(rated.decision(path + ".LOCK"), "lockOrStaging") << path;
        if (!rule.extensions.empty()) {
            EXPECT_EQ(rated.decision(path + ".txt"), "unrecognizedInsideAllowedRoot") << path;
        }
        if (rule.pattern.back() != "**") {
            EXPECT_EQ(rated.decision(path + "/deeper"), "unrecognizedInsideAllowedRoot") << path;
        }
        if (!root.prefix.starts_with("store:")) {
            const std::string other = capitals(root.prefix) + testing::samplePath(rule);
            EXPECT_FALSE(rated.of(other).candidate) << other;
        }
    }
    for (const std::string& pattern : root.protectedChildren) {
        const std::string name = testing::sampleName(pattern);
        const std::string_view expected =
            name.ends_with(".lock") ? "lockOrStaging" : root.protectedDecision;
        EXPECT_EQ(rated.decision(root.prefix + name + "/deep/x"), expected) << name;
        EXPECT_EQ(rated.decision(root.prefix + capitals(name)), expected) << name;
    }
}

TEST(AIToolClassifier, KnowsEveryNameOfItsTables) {
    for (const OperatingSystem system : {OperatingSystem::linux_, OperatingSystem::macOS}) {
        for (const AIToolID tool : allCases<AIToolID>()) {
            // The samples of versions are called "x", and another one is in use.
            const AIToolVersionState state{.versions = {"x"}, .current = {}};
            Rated rated{.tool = tool, .system = system, .entry = {.versionState = &state}};
            const AIToolLayout& layout = rated.layout();
            SCOPED_TRACE(layout.layoutVersion);
            std::vector<std::string> kept(layout.protectedNames.begin(),
                                          layout.protectedNames.end());
            for (const std::string& pattern : layout.protectedTopLevelPatterns) {
                kept.push_back(testing::sampleName(pattern));
            }
            for (const std::string& name : kept) {
                for (const std::string& variant : {name, capitals(name), name + "/cache/x.json"}) {
                    EXPECT_EQ(rated.decision(variant), "namedProtectedState") << variant;
                }
            }
            for (const std::string& name : layout.conversationTopLevelNames) {
                const auto decision = rated.decision(capitals(name) + "/debug/x");
                EXPECT_TRUE(decision == "conversationOrHistory" ||
                            decision == "namedProtectedState")
                    << name;
            }
            for (const char* unknown : {"x y/x.json", "cache-2/x", "\xff/x", "a\nb"}) {
                EXPECT_EQ(rated.decision(unknown), "outsideAllowlist") << unknown;
            }
            for (const AIToolCandidateRoot& root : layout.candidateRoots) {
                checkSamples(rated, {.prefix = root.relativePath + "/",
                                     .rules = root.recognizers,
                                     .protectedChildren = root.protectedChildPatterns,
                                     .protectedDecision = "lockOrStaging"});
                EXPECT_EQ(rated.decision(root.relativePath), "unrecognizedInsideAllowedRoot");
            }
            for (const AIToolExternalStore& store : layout.externalStores) {
                checkSamples(rated, {.prefix = "store:",
                                     .rules = store.recognizers,
                                     .protectedChildren = store.protectedChildPatterns,
                                     .protectedDecision = "currentRuntime"});
                ++rated.store;
            }
        }
    }
}

TEST(AIToolClassifier, KeepsCurrentVersions) {
    const AIToolVersionState state{.versions = {"1.9", "1.10"}, .current = {"1.10"}};
    const Rated rated{.tool = AIToolID::claudeCode, .entry = {.versionState = &state}};
    EXPECT_EQ(rated.decision("store:1.9"), "eligibleDisposable");
    EXPECT_EQ(rated.decision("store:1.10"), "currentRuntime");
    EXPECT_EQ(rated.decision("store:1.11"), "currentRuntime") << "made since";
    EXPECT_EQ(rated.decision("store:.1.9.tmp"), "currentRuntime");
    const Rated code{.tool = AIToolID::vsCode, .entry = {.versionState = &state}};
    EXPECT_EQ(code.decision("CachedData/1.9/x/y"), "eligibleDisposable");
    EXPECT_EQ(code.decision("CachedData/1.10/x/y"), "currentRuntime");
}

TEST(AIToolClassifier, HoldsWhatSomethingSpeaksAgainst) {
    const char* name = "debug/a.txt";
    Rated rated{.tool = AIToolID::claudeCode};
    EXPECT_EQ(rated.decision(name), "eligibleDisposable");
    const auto with = [&](auto change) {
        Rated changed = rated;
        change(changed);
        const AIToolClassification found = changed.of(name);
        EXPECT_FALSE(found.candidate);
        return std::string(rawValue(found.decision));
    };
    EXPECT_EQ(with([](Rated& r) { r.entry.isSymbolicLink = true; }), "symbolicLink");
    EXPECT_EQ(with([](Rated& r) { r.kind = FileKind::other; }), "notARegularFile");
    EXPECT_EQ(with([](Rated& r) { r.kind = FileKind::directory; }), "generalPolicy");
    EXPECT_EQ(with([](Rated& r) { r.isReadable = false; }), "unreadable");
    EXPECT_EQ(with([](Rated& r) { r.owner = 0; }), "generalPolicy");
    EXPECT_EQ(with([](Rated& r) { r.isInRepository = true; }), "generalPolicy");
    EXPECT_EQ(with([](Rated& r) { r.age = day - 1; }), "tooRecent");
    EXPECT_EQ(with([](Rated& r) { r.minimumAge = 0, r.age = day - 1; }), "tooRecent");
    EXPECT_EQ(with([](Rated& r) { r.minimumAge = 500 * day; }), "tooRecent");
    EXPECT_EQ(with([](Rated& r) { r.changeAge = day - 1; }), "tooRecent");
    EXPECT_EQ(with([](Rated& r) { r.age = -10; }), "futureTimestamp");
    EXPECT_EQ(with([](Rated& r) { r.changeAge = -10; }), "futureTimestamp");
    EXPECT_EQ(with([](Rated& r) { r.linkCount = 2; }), "hardLinked");
    const std::string path = "/home/ada/.claude/debug/a.txt";
    EXPECT_EQ(with([&](Rated& r) { r.activity.openFilePaths = {path}; }), "inUseByProcess");
    // What holds an item longest is told first, except that a use may end at any moment.
    EXPECT_EQ(with([&](Rated& r) {
                  r.activity.openFilePaths = {path};
                  r.age = -10;
                  r.linkCount = 2;
              }),
              "inUseByProcess");
    EXPECT_EQ(with([&](Rated& r) {
                  r.age = 10;
                  r.linkCount = 2;
              }),
              "tooRecent");

    rated.isInRepository = true;
    EXPECT_EQ(rated.decision("plugins/.trash/p/x"), "eligibleDisposable");
    EXPECT_EQ(rated.of("debug/a.txt").group, AIToolArtifactGroup::protectedState);
    rated.isInRepository = false;
    rated.age = 10;
    EXPECT_EQ(rated.of(name).group, AIToolArtifactGroup::disposableCache) << "listed with its rule";

    Rated code{.tool = AIToolID::vsCode, .isAppRunning = true};
    EXPECT_EQ(code.decision("Cache/Cache_Data/f_0"), "inUseByProcess");
    EXPECT_EQ(code.decision("Crashpad/completed/a.dmp"), "eligibleDisposable");
    code.isAppRunning = false;
    code.activity.isIncomplete = true;
    EXPECT_EQ(code.decision("Crashpad/completed/a.dmp"), "inUseByProcess") << "nobody knows";
    EXPECT_EQ(code.decision("Cache/Cache_Data/f_0"), "inUseByProcess");
}

TEST(AIToolClassifier, SaysWhoseRuleItIs) {
    const auto found =
        Rated{.tool = AIToolID::codex}.of("cache/codex_apps_tools/a.json").candidate.value();
    EXPECT_EQ(found.assessment.tier, RiskTier::safeToReclaim);
    EXPECT_EQ(found.assessment.evidence.summary.text(),
              "A verified Codex rule (codex-2026.09.27-linux) recognises this as an old, unused "
              "cache or scratch file.");
    EXPECT_EQ(found.category, CleanupCategory::regenerableCache);
    const auto image =
        Rated{.tool = AIToolID::codex}.of("generated_images/a.png").candidate.value();
    EXPECT_EQ(image.assessment.tier, RiskTier::reviewCarefully);
    EXPECT_TRUE(AIToolDatabaseNames::isDatabaseOrSidecar("X.SQLITE-WAL") &&
                AIToolDatabaseNames::isDatabaseOrSidecar("a.db-x") &&
                AIToolDatabaseNames::isDatabaseOrSidecar("000005.ldb"));
    EXPECT_FALSE(AIToolDatabaseNames::isDatabaseOrSidecar("db") ||
                 AIToolDatabaseNames::isDatabaseOrSidecar("a.dbx"));
    EXPECT_EQ(AIToolAgePolicy::effectiveMinimumAge(CleanupAgeFloor::sixMonths), 15'724'800);
}

TEST(AIToolClassifier, SaysWhyAndWhatWouldHaveToChange) {
    const auto why = [](const Rated& rated, std::string_view name) {
        (void)rated.of(name);
        return rated.why;
    };
    const char* tools = "cache/codex_apps_tools/a.json";
    Rated rated{.tool = AIToolID::codex};
    EXPECT_EQ(why(rated, tools), "Codex's rule \"Codex app tool listings\" recognises this, and "
                                 "nothing speaks against it, so it may go.");
    rated.changeAge = 3 * 3'600 + 59;
    EXPECT_EQ(why(rated, tools),
              "Codex's rule \"Codex app tool listings\" recognises this, but it changed 3 hours "
              "ago; it may go once it is older than 24 hours.");
    rated.changeAge = 30 * day;
    rated.minimumAge = 90 * day;
    EXPECT_TRUE(why(rated, tools)
                    .ends_with("30 days ago; it may go once it is older than 90 "
                               "days."));
    rated.age = -5;
    EXPECT_TRUE(why(rated, tools).contains("nobody knows its age"));
    rated = {.tool = AIToolID::codex, .linkCount = 2};
    EXPECT_TRUE(why(rated, tools).contains("other names lead to the same data"));
    rated = {.tool = AIToolID::codex, .owner = 7};
    EXPECT_TRUE(why(rated, tools).contains("general safety rules"));
    EXPECT_TRUE(why(Rated{.tool = AIToolID::vsCode, .isAppRunning = true}, "Cache/Cache_Data/f_0")
                    .ends_with("but VS Code is running; it may go once VS Code has quit."));

    // Where a name decides, the decision's own words stand in it.
    rated = {.tool = AIToolID::codex};
    const auto says = [&](std::string_view name, std::string_view begin, AIToolDecision decision) {
        const std::string told = why(rated, name);
        return told.starts_with(begin) && told.ends_with(explanation(decision));
    };
    EXPECT_TRUE(says("sessions/1/a.jsonl", "\"sessions\" decides for all",
                     AIToolDecision::namedProtectedState));
    EXPECT_TRUE(says("cache/codex_apps_tools/a\n.db/b", "\"a\\n.db\"", AIToolDecision::database));
    EXPECT_TRUE(says("cache/codex_apps_tools/a.txt",
                     "None of Codex's rules for this folder "
                     "recognises \"a.txt\"",
                     AIToolDecision::unrecognizedInsideAllowedRoot));
    EXPECT_TRUE(says("unheard-of/x", "\"unheard-of\"", AIToolDecision::outsideAllowlist));
    EXPECT_TRUE(says("store:codex-primary-runtime/x", "\"codex-primary-runtime\" may go once",
                     AIToolDecision::currentRuntime));
    EXPECT_EQ(why(rated, ""), "This is the home of Codex itself, which never goes as a whole.");
    rated.entry.isSymbolicLink = true;
    EXPECT_EQ(why(rated, tools), explanation(AIToolDecision::symbolicLink));
}

} // namespace
} // namespace tidyro
