#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "Support/QuietMachine.h"

namespace tidyro {
namespace {

using enum AIToolID;
using enum AIToolDecision;

/// What is expected of entries of a home, written down by hand: where a table and this list part,
/// one of them is wrong. "|" stands between paths; "0:" and "1:" begin those in a store.
struct ExpectedRow {
    std::vector<AIToolID> tools;
    AIToolDecision decision;
    std::string_view paths;
    bool isAppRunning = false;
};

const std::vector<AIToolID> electronTools{vsCode, cursor, claudeDesktop};
const std::vector<AIToolID> newerTools{geminiCLI, copilotCLI, openCode, aider};

const std::vector<ExpectedRow> expectedRows{
    {{codex},
     namedProtectedState,
     "auth.json|config.toml|codex-router|memories_1.sqlite|goals_1.sqlite|state_5.sqlite|"
     "queue_1.sqlite|session_index.jsonl|sessions|skills|plugins|mcp|rules|AGENTS.md|memories|"
     "history.jsonl|hooks.json|installation_id|private-backups|automations|attachments|"
     "dictation-history|thread-writer-locks|mcp-oauth-locks|ipc|sqlite|log|worktrees|"
     "vendor_imports|computer-use|browser|shell_snapshots|ambient-suggestions|rollout-migrations|"
     "process_manager|node_repl|pets|skysight|models_cache.json|"
     "external_agent_session_imports.json|chrome-native-hosts-v2.json|"
     "auth-x|config-x|x.toml|x.sqlite3|x.db|x.db-wal|thread_history_x|memories_x|goals_x|state_x|"
     "queue_x|logs_x|session_index-x|history-x|.codex-global-state-x|..codex-global-state-x|"
     "x.json|x.jsonl|.x-migration"},
    {{codex},
     lockOrStaging,
     "tmp/arg0|.tmp/plugins|.tmp/plugins-x|.tmp/marketplaces|.tmp/bundled-marketplaces|.tmp/x.sha|"
     "packages/standalone/releases/.x"},
    {{codex}, currentRuntime, "0:codex-primary-runtime/bin/x"},
    {{codex},
     unrecognizedInsideAllowedRoot,
     "cache/other/x.json|cache/codex_apps_tools/x.txt|cache/codex_apps_server_info/x.txt|"
     "cache/remote_plugin_catalog/x.txt|.tmp/git-abcde/x|generated_images/x.txt|"
     "visualizations/x.txt|archived_sessions/x.txt|packages/standalone/releases/x|tmp/x|"
     "0:codex-runtime-install-abcde/x"},
    {{codex}, outsideAllowlist, "x|cache-x|packages|packages/standalone/x"},
    {{codex},
     eligibleDisposable,
     "cache/codex_apps_tools/x.json|cache/codex_apps_server_info/x.json|"
     "cache/remote_plugin_catalog/x.json|.tmp/git-abcdef/x|packages/standalone/releases/x/y|"
     "0:codex-runtime-install-abcdef/x"},
    {{codex},
     eligibleForReview,
     "generated_images/x.png|visualizations/x.html|archived_sessions/x.jsonl|"
     "archived_sessions/x.jsonl.zst"},
    {{claudeCode},
     namedProtectedState,
     "CLAUDE.md|settings.json|settings.local.json|keybindings.json|themes|rules|skills|commands|"
     "agents|workflows|output-styles|agent-memory|projects|file-history|plans|uploads|session-env|"
     "tasks|sessions|plugins|backups|feedback-bundles|feedback|usage-data|history.jsonl|"
     "stats-cache.json|remote-settings.json|policy-limits.json|todos|ide|hooks|mcp.json|"
     ".credentials.json|.last-cleanup|"
     "x.json|x.jsonl|x.md|.credentials-x|x.sqlite3|x.db|policy-limits-x"},
    {{claudeCode}, currentRuntime, "0:.x|1:.x"},
    {{claudeCode},
     unrecognizedInsideAllowedRoot,
     "shell-snapshots/other-x|cache/other.md|0:1.0.8/x|1:p/other/x.jsonl|1:p/mcp-logs-a/x.txt"},
    {{claudeCode}, outsideAllowlist, "x|local"},
    {{claudeCode},
     eligibleDisposable,
     "debug/x|paste-cache/x|image-cache/x|shell-snapshots/snapshot-x|plugins/.trash/x|statsig/x|"
     "cache/changelog.md|0:1.0.8|1:p/mcp-logs-a/x.jsonl"},
    {electronTools, namedProtectedState,
     "User|Backups|Workspaces|WebStorage|Local Storage|Session Storage|IndexedDB|Service Worker|"
     "Partitions|blob_storage|shared_proto_db|SharedStorage|Shared Dictionary|Cookies|"
     "Cookies-journal|Preferences|Local State|Network Persistent State|TransportSecurity|"
     "Trust Tokens|Trust Tokens-journal|DIPS|machineid|CachedProfilesData|CachedConfigurations|"
     "GPUCache|DawnGraphiteCache|DawnWebGPUCache|VideoDecodeStats|agent-host|"
     "claude_desktop_config.json|config.json|extensions|x.json|x.lock|x.sock|.x"},
    {electronTools, conversationOrHistory, "agentSessionData/x"},
    {{claudeDesktop}, conversationOrHistory, "claude-code-sessions/x|local-agent-mode-sessions/x"},
    {electronTools, lockOrStaging, "Cache/Cache_Data/index|Cache/Cache_Data/index-dir"},
    {{vsCode, cursor}, lockOrStaging, "CachedData/.x|CachedExtensionVSIXs/.x"},
    {electronTools, unrecognizedInsideAllowedRoot,
     "Cache/Cache_Data/f_a|Code Cache/f_0|Crashpad/completed/x.txt"},
    {{vsCode, cursor}, unrecognizedInsideAllowedRoot, "CachedData/x|CachedExtensionVSIXs/a/b"},
    {electronTools, outsideAllowlist, "x|Crashpad/pending/x.dmp|Cache/x_0"},
    {{claudeDesktop}, outsideAllowlist, "CachedData/a/b|CachedExtensionVSIXs/a"},
    {electronTools, eligibleDisposable,
     "Cache/Cache_Data/f_0|Code Cache/js/f_0|Crashpad/completed/x.dmp"},
    {{vsCode, cursor}, eligibleDisposable, "CachedData/a/b|CachedExtensionVSIXs/a"},
    {electronTools, inUseByProcess, "Cache/Cache_Data/f_0|Code Cache/js/f_0", true},
    {electronTools, eligibleDisposable, "Crashpad/completed/x.dmp", true},
    {{vsCode, cursor}, eligibleDisposable, "CachedData/a/b|CachedExtensionVSIXs/a", true},
    {newerTools, namedProtectedState,
     "x.json|x.jsonl|x.md|x.toml|x.env|x.sqlite3|x.db|x.db-wal|my-auth-x|my-token-x|"
     "my-credential-x"},
    {{geminiCLI},
     namedProtectedState,
     "settings.json|oauth_creds.json|google_accounts.json|google_account_id|installation_id|"
     "mcp-oauth-tokens.json|state.json|projects.json|.env|GEMINI.md|memory.md|extensions|commands|"
     "agents|skills|policies|trustedFolders.json"},
    {{geminiCLI}, conversationOrHistory, "tmp/x|history/x"},
    {{copilotCLI},
     namedProtectedState,
     "config.json|mcp-config.json|permissions-config.json|lsp-config.json|copilot-instructions.md|"
     "agents|skills|installed-plugins|pkg|command-history-state.json|session-store.db"},
    {{copilotCLI}, conversationOrHistory, "session-state/x|history-session-state/x"},
    {{openCode}, namedProtectedState, "auth.json|mcp-auth.json|bin|worktree|plans"},
    {{openCode}, conversationOrHistory, "storage/x|snapshot/x|project/x|tool-output/x"},
    {{aider}, namedProtectedState, "analytics.json|installs.json|oauth-keys.env"},
    {newerTools, outsideAllowlist, "x"},
    {{copilotCLI}, lockOrStaging, "logs/.x"},
    {{copilotCLI}, unrecognizedInsideAllowedRoot, "logs/x.txt|logs/a/x.log"},
    {{copilotCLI}, eligibleDisposable, "logs/x.log"},
    {{openCode}, lockOrStaging, "log/.x"},
    {{openCode}, unrecognizedInsideAllowedRoot, "log/x.txt|log/a/x.log"},
    {{openCode}, eligibleDisposable, "log/x.log"},
    {{aider}, lockOrStaging, "caches/.x"},
    {{aider}, unrecognizedInsideAllowedRoot, "caches/x.txt|caches/a/x.json"},
    {{aider}, eligibleDisposable, "caches/x.json"},
};

/// Of the rules that say more than a plain one: trash only (t), not ticked (u), excused for their
/// names (n) and for the keys of their documents (k).
const std::map<std::string_view, std::string_view> expectedTraits{
    {"codex-cache-apps-tools", "k"},
    {"codex-cache-apps-server-info", "k"},
    {"codex-cache-remote-plugin-catalog", "k"},
    {"codex-superseded-releases", "tu"},
    {"claude-paste-cache", "u"},
    {"claude-image-cache", "u"},
    {"claude-legacy-statsig", "n"},
    {"claude-mcp-logs", "tuk"},
    {"copilot-logs", "tuk"},
    {"opencode-logs", "tuk"},
    {"aider-caches", "tu"},
};

std::string traitsOf(const AIToolRecognizer& rule) {
    std::string traits;
    if (rule.isForTrashOnly) traits += 't';
    if (!rule.isRecommended) traits += 'u';
    if (rule.mayBeNamedLikeConversations) traits += 'n';
    if (rule.mayContainConversationKeys) traits += 'k';
    return traits;
}

AIToolDecision decisionIn(std::span<const AIToolLayout> layouts, AIToolID tool,
                          std::string_view path, bool isAppRunning) {
    const Timestamp moment = Timestamp::since1970(1'800'000'000.0);
    const Timestamp old = moment.adding(-400 * 86'400.0);
    AIToolLocation at{.home = {.tool = tool,
                               .url = FileURL::folder("/h"),
                               .deviceID = 1,
                               .inode = 2,
                               .source = AIToolHome::Source::conventional,
                               .userHome = FileURL::folder("/u")},
                      .place = {},
                      .rootURL = FileURL::folder("/h"),
                      .components = {}};
    if (path.size() > 2 && path[1] == ':') {
        at.place.storeIndex = static_cast<std::size_t>(path[0] - '0');
        path.remove_prefix(2);
    }
    AIToolVersionState versions{.versions = {"2.0"}, .current = {"2.0"}};
    for (const std::string_view each : path::components(path)) {
        at.components.emplace_back(each);
        versions.versions.emplace(each);
    }
    const FileObservation item{.id = {std::string(path)},
                               .url = at.rootURL.appending(path),
                               .kind = FileKind::regularFile,
                               .byteCount = 1,
                               .modificationDate = old,
                               .ownerUserID = platform::currentUserID(),
                               .volumeIdentifier = "inside",
                               .isReadable = true,
                               .isCloudPlaceholder = false,
                               .isInProjectRepository = false,
                               .isBackupArtifact = false,
                               .linkCount = 1};
    const AIToolClassifier classifier({.minimumAge = 86'400,
                                       .context = SafetyPolicyContext(testing::quietMachine()),
                                       .activity = {},
                                       .now = moment,
                                       .isToolAppRunning = isAppRunning,
                                       .layouts = layouts});
    return classifier.classify(item, at, {.versionState = &versions, .statusChangeDate = old})
        .decision;
}

/// The first expectation of a tool that does not hold; empty when all do.
std::string firstBroken(std::span<const AIToolLayout> layouts, AIToolID tool) {
    for (const ExpectedRow& row : expectedRows) {
        if (std::ranges::find(row.tools, tool) == row.tools.end()) continue;
        for (std::string_view rest = row.paths; !rest.empty();) {
            const std::string_view path = rest.substr(0, rest.find('|'));
            rest.remove_prefix(std::min(path.size() + 1, rest.size()));
            const auto decision = decisionIn(layouts, tool, path, row.isAppRunning);
            if (decision != row.decision) {
                return std::string(path) + " is " + std::string(rawValue(decision));
            }
        }
    }
    const AIToolLayout& layout = layouts[static_cast<std::size_t>(tool)];
    std::vector<const AIToolRecognizer*> rules;
    for (const auto& root : layout.candidateRoots) {
        for (const AIToolRecognizer& rule : root.recognizers) rules.push_back(&rule); // NOLINT
    }
    for (const auto& store : layout.externalStores) {
        for (const AIToolRecognizer& rule : store.recognizers) rules.push_back(&rule); // NOLINT
    }
    for (const AIToolRecognizer* rule : rules) {
        const auto expected = expectedTraits.find(rule->ruleID);
        const std::string_view traits = expected == expectedTraits.end() ? "" : expected->second;
        if (traitsOf(*rule) != traits) return rule->ruleID + " has " + traitsOf(*rule);
    }
    return {};
}

/// All tables but one as they are, and that one changed.
class TableMutants {
  public:
    TableMutants(OperatingSystem system, AIToolID tool)
        : layouts_(AIToolLayouts::all(system).begin(), AIToolLayouts::all(system).end()),
          tool_(tool) {}

    void dies(const std::string& what, const std::function<void(AIToolLayout&)>& change) {
        AIToolLayout& layout = layouts_[static_cast<std::size_t>(tool_)];
        const AIToolLayout whole = layout;
        change(layout);
        ++count;
        EXPECT_NE(firstBroken(layouts_, tool_), "") << displayName(tool_) << " without " << what;
        layout = whole;
    }
    /// Without a name, and without the patterns that it fits as well.
    void drop(const std::string& name) {
        dies(name, [&](AIToolLayout& layout) {
            layout.protectedNames.erase(name);
            std::erase_if(layout.protectedTopLevelPatterns, [&](const std::string& pattern) {
                return NamePattern::matches(pattern, name);
            });
        });
    }
    void mutateRules(const std::function<std::vector<AIToolRecognizer>&(AIToolLayout&)>& rulesOf) {
        for (std::size_t i = 0; i < rulesOf(whole()).size(); ++i) {
            const AIToolRecognizer rule = rulesOf(whole())[i];
            const auto change = [&](const char* what, auto member, auto value) {
                dies(rule.ruleID + "'s " + what,
                     [&](AIToolLayout& layout) { rulesOf(layout)[i].*member = value; });
            };
            using Rule = AIToolRecognizer;
            if (rule.pattern != std::vector<std::string>{"**"}) {
                change("pattern", &Rule::pattern, std::vector<std::string>{"**"});
            }
            if (!rule.extensions.empty()) {
                change("extensions", &Rule::extensions, decltype(rule.extensions){});
            }
            change("trash", &Rule::isForTrashOnly, !rule.isForTrashOnly);
            change("tick", &Rule::isRecommended, !rule.isRecommended);
            change("names", &Rule::mayBeNamedLikeConversations, !rule.mayBeNamedLikeConversations);
            change("keys", &Rule::mayContainConversationKeys, !rule.mayContainConversationKeys);
        }
    }
    void mutateChildren(const std::function<std::vector<std::string>&(AIToolLayout&)>& patternsOf) {
        for (std::size_t i = 0; i < patternsOf(whole()).size(); ++i) {
            const std::string pattern = patternsOf(whole())[i];
            if (pattern == "*.lock") continue; // such a name is a lock everywhere
            dies("the child " + pattern, [&](AIToolLayout& layout) {
                patternsOf(layout).erase(patternsOf(layout).begin() +
                                         static_cast<std::ptrdiff_t>(i));
            });
        }
    }
    [[nodiscard]] AIToolLayout& whole() { return layouts_[static_cast<std::size_t>(tool_)]; }

    std::size_t count = 0;

  private:
    std::vector<AIToolLayout> layouts_;
    AIToolID tool_;
};

TEST(AIToolTableMutants, AllDie) {
    std::size_t count = 0;
    for (const OperatingSystem system : {OperatingSystem::linux_, OperatingSystem::macOS}) {
        for (const AIToolID tool : allCases<AIToolID>()) {
            ASSERT_EQ(firstBroken(AIToolLayouts::all(system), tool), "") << displayName(tool);
            TableMutants mutants(system, tool);
            const AIToolLayout layout = mutants.whole();
            for (const std::string& name : layout.protectedNames) mutants.drop(name);
            for (const std::string& pattern : layout.protectedTopLevelPatterns) {
                if (pattern == "*.config.toml") continue; // "*.toml" holds all of these
                mutants.dies(pattern, [&](AIToolLayout& changed) {
                    std::erase(changed.protectedTopLevelPatterns, pattern);
                });
            }
            for (const std::string& name : layout.conversationTopLevelNames) {
                mutants.dies("the conversations in " + name, [&](AIToolLayout& changed) {
                    changed.conversationTopLevelNames.erase(name);
                    changed.protectedNames.erase(name);
                    std::erase_if(changed.protectedTopLevelPatterns, [&](const auto& pattern) {
                        return NamePattern::matches(pattern, name);
                    });
                });
            }
            for (std::size_t i = 0; i < layout.candidateRoots.size(); ++i) {
                const auto rootOf = [i](AIToolLayout& changed) -> AIToolCandidateRoot& {
                    return changed.candidateRoots[i];
                };
                mutants.mutateChildren([&](AIToolLayout& changed) -> std::vector<std::string>& {
                    return rootOf(changed).protectedChildPatterns;
                });
                mutants.mutateRules([&](AIToolLayout& changed) -> std::vector<AIToolRecognizer>& {
                    return rootOf(changed).recognizers;
                });
                if (layout.candidateRoots[i].recognizers.empty() || tool < vsCode ||
                    tool > claudeDesktop) {
                    continue; // the commands have no application
                }
                mutants.dies("what holds " + layout.candidateRoots[i].relativePath,
                             [&](AIToolLayout& changed) {
                                 rootOf(changed).heldWhileAppRuns =
                                     !rootOf(changed).heldWhileAppRuns;
                             });
            }
            for (std::size_t i = 0; i < layout.externalStores.size(); ++i) {
                mutants.mutateChildren([&](AIToolLayout& changed) -> std::vector<std::string>& {
                    return changed.externalStores[i].protectedChildPatterns;
                });
                mutants.mutateRules([&](AIToolLayout& changed) -> std::vector<AIToolRecognizer>& {
                    return changed.externalStores[i].recognizers;
                });
            }
            count += mutants.count;
        }
    }
    EXPECT_GT(count, 700U);
}

} // namespace
} // namespace tidyro
