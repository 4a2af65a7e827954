#include <algorithm>
#include <array>
#include <cstddef>

#include "Base/PathText.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/AITools/AIToolLayout.h"
#include "StorageEngine/AITools/AIToolTables.h"

namespace tidyro {

namespace aitools {

namespace {

using enum CleanupCategory;
using std::to_array;

// Names and folders as the tools write them in September 2026. Whatever is not in a table stays.

constexpr auto codexMarkers =
    to_array<std::string_view>({"config.toml", "auth.json", "sessions", "session_index.jsonl"});
constexpr auto codexConversations =
    to_array<std::string_view>({"sessions", "session_index.jsonl", "history.jsonl"});
constexpr auto codexProtected = to_array<std::string_view>({"auth.json",
                                                            "config.toml",
                                                            "codex-router",
                                                            "memories_1.sqlite",
                                                            "goals_1.sqlite",
                                                            "state_5.sqlite",
                                                            "queue_1.sqlite",
                                                            "session_index.jsonl",
                                                            "sessions",
                                                            "skills",
                                                            "plugins",
                                                            "mcp",
                                                            "rules",
                                                            "AGENTS.md",
                                                            "memories",
                                                            "history.jsonl",
                                                            "hooks.json",
                                                            "installation_id",
                                                            "private-backups",
                                                            "automations",
                                                            "attachments",
                                                            "dictation-history",
                                                            "thread-writer-locks",
                                                            "mcp-oauth-locks",
                                                            "ipc",
                                                            "sqlite",
                                                            "log",
                                                            "worktrees",
                                                            "vendor_imports",
                                                            "computer-use",
                                                            "browser",
                                                            "shell_snapshots",
                                                            "ambient-suggestions",
                                                            "rollout-migrations",
                                                            "process_manager",
                                                            "node_repl",
                                                            "pets",
                                                            "skysight",
                                                            "models_cache.json",
                                                            "external_agent_session_imports.json",
                                                            "chrome-native-hosts-v2.json"});
constexpr auto codexPatterns = to_array<std::string_view>({"auth*",
                                                           "config*",
                                                           "*.toml",
                                                           "*.config.toml",
                                                           "*.sqlite*",
                                                           "*.db",
                                                           "*.db-*",
                                                           "thread_history_*",
                                                           "memories_*",
                                                           "goals_*",
                                                           "state_*",
                                                           "queue_*",
                                                           "logs_*",
                                                           "session_index*",
                                                           "history*",
                                                           ".codex-global-state*",
                                                           "..codex-global-state*",
                                                           "*.json",
                                                           "*.jsonl",
                                                           ".*migration*"});
constexpr auto codexRoots = to_array<RootRow>({
    {"cache"},
    {"tmp", "arg0"},
    {".tmp", "plugins plugins-* marketplaces bundled-marketplaces *.lock *.sha"},
    {"generated_images"},
    {"visualizations"},
    {"archived_sessions"},
    // The standalone installer keeps each release in a folder of its own.
    {"packages/standalone/releases", ".* *.lock", "packages/standalone/current"},
});
constexpr auto codexStores = to_array<StoreRow>({
    {".cache/codex-runtimes", "codex-primary-runtime *.lock"},
});
constexpr auto codexRules = to_array<RuleRow>({
    {"cache", "codex-cache-apps-tools", "Codex app tool listings", "codex_apps_tools/*", "json",
     disposable, regenerableCache,
     "Codex downloads the list of app tools again the next time it needs it.",
     containsConversationKeys},
    {"cache", "codex-cache-apps-server-info", "Codex app server details",
     "codex_apps_server_info/*", "json", disposable, regenerableCache,
     "Codex fetches server details again on next use.", containsConversationKeys},
    {"cache", "codex-cache-remote-plugin-catalog", "Codex plugin catalog copies",
     "remote_plugin_catalog/*", "json", disposable, regenerableCache,
     "Codex downloads the plugin catalog again when it next checks.", containsConversationKeys},
    {".tmp", "codex-tmp-git-scratch", "Codex scratch git folders",
     "git-??????"
     "/**",
     "", disposable, temporaryArtifact,
     "Nothing is lost. These are leftovers from finished git operations."},
    {"generated_images", "codex-generated-images", "Images Codex generated", "**",
     "png jpg jpeg webp gif", generated, generatedWork,
     "These are images made for you. Codex cannot recreate the same image."},
    {"visualizations", "codex-visualizations", "Visualizations Codex made", "**",
     "png jpg jpeg webp gif svg html pdf", generated, generatedWork,
     "These are charts and pages made for you, and may not be reproducible."},
    {"archived_sessions", "codex-archived-sessions", "Archived Codex conversations", "**",
     "jsonl jsonl.zst", generated, archivedConversation,
     "Archived conversations cannot be reopened in Codex once removed."},
    {"packages/standalone/releases", "codex-superseded-releases", "Older Codex releases", "*/**",
     "", disposable, temporaryArtifact,
     "Older releases are no longer launched. Codex downloads any release it needs again.",
     trashOnly | unticked},
    {".cache/codex-runtimes", "codex-runtime-install-staging", "Abandoned Codex runtime installs",
     "codex-runtime-install-??????"
     "/**",
     "", disposable, temporaryArtifact,
     "Nothing is lost. These are leftovers from an installer that did not finish."},
});

constexpr auto claudeMarkers = to_array<std::string_view>(
    {"settings.json", "projects", "plugins", "history.jsonl", "CLAUDE.md"});
constexpr auto claudeConversations =
    to_array<std::string_view>({"projects", "file-history", "history.jsonl", "sessions", "plans"});
constexpr auto claudeProtected = to_array<std::string_view>({"CLAUDE.md",
                                                             "settings.json",
                                                             "settings.local.json",
                                                             "keybindings.json",
                                                             "themes",
                                                             "rules",
                                                             "skills",
                                                             "commands",
                                                             "agents",
                                                             "workflows",
                                                             "output-styles",
                                                             "agent-memory",
                                                             "projects",
                                                             "file-history",
                                                             "plans",
                                                             "uploads",
                                                             "session-env",
                                                             "tasks",
                                                             "sessions",
                                                             "plugins",
                                                             "backups",
                                                             "feedback-bundles",
                                                             "feedback",
                                                             "usage-data",
                                                             "history.jsonl",
                                                             "stats-cache.json",
                                                             "remote-settings.json",
                                                             "policy-limits.json",
                                                             "todos",
                                                             "ide",
                                                             "hooks",
                                                             "mcp.json",
                                                             ".credentials.json",
                                                             ".last-cleanup"});
constexpr auto claudePatterns = to_array<std::string_view>(
    {"*.json", "*.jsonl", "*.md", ".credentials*", "*.sqlite*", "*.db", "policy-limits*"});
constexpr auto claudeRoots = to_array<RootRow>({{"debug"},
                                                {"paste-cache"},
                                                {"image-cache"},
                                                {"shell-snapshots"},
                                                {"plugins/.trash"},
                                                {"statsig"},
                                                {"cache"}});
/// The folder for caches is the system's own.
constexpr std::string_view claudeLogs = ".cache/claude-cli-nodejs";
constexpr std::string_view claudeLogsOnMac = "Library/Caches/claude-cli-nodejs";
constexpr auto claudeStores = to_array<StoreRow>({
    {".local/share/claude/versions", "*.lock .*", ".local/bin/claude"},
    {claudeLogs, ".*"},
});
constexpr auto claudeRules = to_array<RuleRow>({
    {"debug", "claude-debug-logs", "Claude Code debug logs", "**", "", disposable, expiredLog,
     "Only diagnostic logs from past sessions are removed."},
    {"paste-cache", "claude-paste-cache", "Claude Code paste cache", "**", "", disposable,
     regenerableCache, "Copies of large pastes from past sessions are removed.", unticked},
    {"image-cache", "claude-image-cache", "Claude Code image cache", "**", "", disposable,
     regenerableCache, "Cached copies of images from past sessions are removed.", unticked},
    {"shell-snapshots", "claude-shell-snapshots", "Claude Code shell snapshots", "snapshot-*", "",
     disposable, temporaryArtifact,
     "Claude Code captures your shell setup again when a session starts."},
    {"plugins/.trash", "claude-removed-plugins", "Plugins Claude Code already removed", "**", "",
     disposable, temporaryArtifact,
     "These plugins were already removed; this clears what was set aside."},
    {"statsig", "claude-legacy-statsig", "Old Claude Code feature-flag cache", "**", "", disposable,
     regenerableCache, "Claude Code no longer writes this folder.", namedLikeConversations},
    {"cache", "claude-changelog-cache", "Claude Code changelog copy", "changelog.md", "",
     disposable, regenerableCache, "Claude Code downloads the changelog again when it needs it."},
    {".local/share/claude/versions", "claude-superseded-versions", "Older Claude Code versions",
     "*", "", disposable, temporaryArtifact,
     "Older versions are no longer launched. Claude Code downloads any version it needs again."},
    // One folder for each working folder, in it one for each server.
    {claudeLogs, "claude-mcp-logs", "Claude Code logs of MCP servers", "*/mcp-logs-*/*", "jsonl",
     disposable, expiredLog, "Only logs of tool servers from past sessions are removed.",
     trashOnly | unticked | containsConversationKeys},
});

// The tools from here on have no row for what their own documentation does not call a cache or a
// log. Their markers and protected names are as their public source had them in September 2026.

// Gemini CLI, documentation of its configuration: "tmp" holds logs, but these hold whole prompts,
// and checkpoints. So it is only measured.
constexpr auto geminiMarkers =
    to_array<std::string_view>({"settings.json", "oauth_creds.json", "google_accounts.json",
                                "installation_id", "tmp", "GEMINI.md"});
constexpr auto geminiConversations = to_array<std::string_view>({"tmp", "history"});
constexpr auto geminiProtected = to_array<std::string_view>(
    {"settings.json", "oauth_creds.json", "google_accounts.json", "google_account_id",
     "installation_id", "mcp-oauth-tokens.json", "state.json", "projects.json", ".env", "GEMINI.md",
     "memory.md", "extensions", "commands", "agents", "skills", "policies", "trustedFolders.json"});

// Copilot CLI, documentation of its configuration folder: "logs" are log files by process, and
// session states are conversations.
constexpr auto copilotMarkers =
    to_array<std::string_view>({"config.json", "mcp-config.json", "session-state",
                                "history-session-state", "logs", "command-history-state.json"});
constexpr auto copilotConversations = to_array<std::string_view>(
    {"session-state", "history-session-state", "command-history-state.json", "session-store.db"});
constexpr auto copilotProtected = to_array<std::string_view>(
    {"config.json", "mcp-config.json", "permissions-config.json", "lsp-config.json",
     "copilot-instructions.md", "agents", "skills", "installed-plugins", "pkg"});
constexpr auto copilotRoots = to_array<RootRow>({{"logs", ".*"}});
constexpr auto copilotRules = to_array<RuleRow>({
    {"logs", "copilot-logs", "Copilot CLI logs", "*", "log", disposable, expiredLog,
     "Only diagnostic logs from past sessions are removed.",
     trashOnly | unticked | containsConversationKeys},
});

// opencode, documentation of its troubleshooting: "log" holds a log file for each start; "storage"
// holds the sessions, "snapshot" what its undo goes back to, "auth.json" the keys.
constexpr auto openCodeMarkers =
    to_array<std::string_view>({"auth.json", "log", "storage", "snapshot", "project"});
constexpr auto openCodeConversations =
    to_array<std::string_view>({"storage", "snapshot", "project", "tool-output"});
constexpr auto openCodeProtected =
    to_array<std::string_view>({"auth.json", "mcp-auth.json", "bin", "worktree", "plans"});
constexpr auto openCodeRoots = to_array<RootRow>({{"log", ".*"}});
constexpr auto openCodeRules = to_array<RuleRow>({
    {"log", "opencode-logs", "opencode logs", "*", "log", disposable, expiredLog,
     "Only diagnostic logs from past sessions are removed.",
     trashOnly | unticked | containsConversationKeys},
});

// Aider, its source: "caches" holds the price list of models and the time of the last check for a
// newer version. Conversations lie in the projects.
constexpr auto aiderMarkers =
    to_array<std::string_view>({"caches", "analytics.json", "installs.json", "oauth-keys.env"});
constexpr auto aiderProtected =
    to_array<std::string_view>({"analytics.json", "installs.json", "oauth-keys.env"});
constexpr auto aiderRoots = to_array<RootRow>({{"caches", ".*"}});
constexpr auto aiderRules = to_array<RuleRow>({
    {"caches", "aider-caches", "Aider caches", "*", "json", disposable, regenerableCache,
     "Aider downloads the list of models again when it next starts.", trashOnly | unticked},
});

/// What any home of a command may hold at its top that is no cache.
constexpr auto statePatterns =
    to_array<std::string_view>({"*.json", "*.jsonl", "*.md", "*.toml", "*.env", "*.sqlite*", "*.db",
                                "*.db-*", "*auth*", "*token*", "*credential*"});

struct CommandTable {
    AIToolID tool;
    std::string_view version;
    std::string_view home;
    std::string_view environmentVariable;
    Names markers;
    Names protectedNames;
    Names patterns;
    Names conversations;
    std::span<const RootRow> roots;
    std::span<const StoreRow> stores;
    std::span<const RuleRow> rules;
    std::string_view note;
};

constexpr auto commandTables = to_array<CommandTable>({
    {AIToolID::codex, "codex-2026.09.27", ".codex", "CODEX_HOME", codexMarkers, codexProtected,
     codexPatterns, codexConversations, codexRoots, codexStores, codexRules,
     "Codex keeps conversations in sessions and its SQLite databases. Archive or delete "
     "conversations inside Codex; set history.max_bytes in config.toml to cap prompt history."},
    {AIToolID::claudeCode, "claude-code-2026.09.27", ".claude", "CLAUDE_CONFIG_DIR", claudeMarkers,
     claudeProtected, claudePatterns, claudeConversations, claudeRoots, claudeStores, claudeRules,
     "Claude Code deletes old transcripts, file history and temporary data itself. Lower "
     "cleanupPeriodDays in ~/.claude/settings.json to keep less history."},
    {AIToolID::geminiCLI,
     "gemini-cli-2026.09.27",
     ".gemini",
     "",
     geminiMarkers,
     geminiProtected,
     statePatterns,
     geminiConversations,
     {},
     {},
     {},
     "Gemini CLI keeps its conversations in tmp. Set general.sessionRetention in "
     "~/.gemini/settings.json to keep less history."},
    {AIToolID::copilotCLI,
     "copilot-cli-2026.09.27",
     ".copilot",
     "COPILOT_HOME",
     copilotMarkers,
     copilotProtected,
     statePatterns,
     copilotConversations,
     copilotRoots,
     {},
     copilotRules,
     "Copilot CLI keeps its conversations in session-state. Delete sessions inside Copilot CLI."},
    {AIToolID::openCode,
     "opencode-2026.09.27",
     ".local/share/opencode",
     "",
     openCodeMarkers,
     openCodeProtected,
     statePatterns,
     openCodeConversations,
     openCodeRoots,
     {},
     openCodeRules,
     "opencode keeps its conversations in storage. Delete sessions inside opencode."},
    {AIToolID::aider,
     "aider-2026.09.27",
     ".aider",
     "",
     aiderMarkers,
     aiderProtected,
     statePatterns,
     {},
     aiderRoots,
     {},
     aiderRules,
     "Aider keeps its conversations in the projects that they are about."},
});

// Such a database may grow to gigabytes. Some versions of Codex clear old entries when they start;
// which ones was not looked up in its source, so the text promises nothing of a single version.
constexpr std::string_view codexLogs = "logs_*.sqlite";
constexpr std::string_view codexLogsRemedy =
    "Update Codex, end all of its sessions and start it once: versions that clear old entries of "
    "this log do so when they start.";

AIToolLayout command(const CommandTable& table, OperatingSystem system) {
    AIToolLayout layout{.tool = table.tool,
                        .layoutVersion = layoutVersion(table.version, system),
                        .homeRelativePath = std::string(table.home),
                        .environmentVariable = std::string(table.environmentVariable),
                        .homeMarkers = list(table.markers),
                        .protectedNames = set(table.protectedNames),
                        .protectedTopLevelPatterns = list(table.patterns),
                        .conversationTopLevelNames = set(table.conversations),
                        .candidateRoots = roots(table.roots, table.rules),
                        .externalStores = stores(table.stores, table.rules),
                        .nativeManagementNote = std::string(table.note)};
    if (table.tool == AIToolID::codex) {
        layout.growingFiles.push_back(
            {.pattern = std::string(codexLogs), .remedy = std::string(codexLogsRemedy)});
    }
    if (system == OperatingSystem::macOS) {
        for (AIToolExternalStore& store : layout.externalStores) {
            if (store.relativeToUserHome == claudeLogs) store.relativeToUserHome = claudeLogsOnMac;
        }
    }
    return layout;
}

std::vector<AIToolLayout> layoutsFor(OperatingSystem system) {
    std::vector<AIToolLayout> all;
    for (const AIToolID tool : allCases<AIToolID>()) {
        const auto* table = std::ranges::find(commandTables, tool, &CommandTable::tool);
        all.push_back(table != commandTables.end() ? command(*table, system)
                                                   : electron(tool, system));
    }
    return all;
}

} // namespace

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> all;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        all.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return all;
}

std::vector<std::string> list(Names names) { return {names.begin(), names.end()}; }
AIToolLayout::Names set(Names names) { return {names.begin(), names.end()}; }

std::string layoutVersion(std::string_view version, OperatingSystem system) {
    return std::string(version) + (system == OperatingSystem::linux_ ? "-linux" : "");
}

AIToolRecognizer recognizer(const RuleRow& row) {
    AIToolRecognizer made{.ruleID = std::string(row.ruleID),
                          .title = std::string(row.title),
                          .group = row.group,
                          .category = row.category,
                          .pattern = {},
                          .extensions = {},
                          .consequence = std::string(row.consequence),
                          .isForTrashOnly = (row.traits & trashOnly) != 0,
                          .isRecommended = (row.traits & unticked) == 0,
                          .mayBeNamedLikeConversations = (row.traits & namedLikeConversations) != 0,
                          .mayContainConversationKeys =
                              (row.traits & containsConversationKeys) != 0};
    for (const std::string_view component : path::components(row.pattern)) {
        made.pattern.emplace_back(component);
    }
    for (std::string& extension : words(row.extensions))
        made.extensions.insert(std::move(extension));
    return made;
}

namespace {

std::vector<AIToolRecognizer> recognizersOf(std::string_view root, std::span<const RuleRow> rules) {
    std::vector<AIToolRecognizer> all;
    for (const RuleRow& row : rules) {
        if (row.root == root) all.push_back(recognizer(row));
    }
    return all;
}

} // namespace

std::vector<AIToolCandidateRoot> roots(std::span<const RootRow> rows,
                                       std::span<const RuleRow> rules) {
    std::vector<AIToolCandidateRoot> all;
    for (const RootRow& row : rows) {
        AIToolCandidateRoot root{.relativePath = std::string(row.path),
                                 .recognizers = recognizersOf(row.path, rules),
                                 .protectedChildPatterns = words(row.protectedChildren)};
        if (!row.currentLink.empty()) root.currentLink = row.currentLink;
        all.push_back(std::move(root));
    }
    return all;
}

std::vector<AIToolExternalStore> stores(std::span<const StoreRow> rows,
                                        std::span<const RuleRow> rules) {
    std::vector<AIToolExternalStore> all;
    for (const StoreRow& row : rows) {
        AIToolExternalStore store{.relativeToUserHome = std::string(row.path),
                                  .kind = {},
                                  .recognizers = recognizersOf(row.path, rules),
                                  .protectedChildPatterns = words(row.protectedChildren)};
        if (!row.launcher.empty()) store.kind.launcherRelativePath = row.launcher;
        all.push_back(std::move(store));
    }
    return all;
}

} // namespace aitools

std::string_view displayName(AIToolID tool) {
    switch (tool) {
        using enum AIToolID;
    case codex: return "Codex";
    case claudeCode: return "Claude Code";
    case vsCode: return "VS Code";
    case cursor: return "Cursor";
    case claudeDesktop: return "Claude Desktop";
    case geminiCLI: return "Gemini CLI";
    case copilotCLI: return "Copilot CLI";
    case openCode: return "opencode";
    case aider: break;
    }
    return "Aider";
}

std::optional<AIToolLayout::Found> AIToolLayout::recognizer(std::string_view id) const {
    for (const AIToolCandidateRoot& root : candidateRoots) {
        const auto found = std::ranges::find(root.recognizers, id, &AIToolRecognizer::ruleID);
        if (found != root.recognizers.end()) return Found{&*found, &root, std::nullopt};
    }
    for (std::size_t i = 0; i < externalStores.size(); ++i) {
        const auto& rules = externalStores[i].recognizers;
        const auto found = std::ranges::find(rules, id, &AIToolRecognizer::ruleID);
        if (found != rules.end()) return Found{&*found, nullptr, i};
    }
    return std::nullopt;
}

const AIToolGrowingFile* AIToolLayout::growingFile(std::string_view name) const {
    const auto found = std::ranges::find_if(growingFiles, [&](const AIToolGrowingFile& each) {
        return NamePattern::matches(each.pattern, name);
    });
    return found != growingFiles.end() ? &*found : nullptr;
}

const AIToolCandidateRoot* AIToolLayout::rootOf(std::span<const std::string> components) const {
    const AIToolCandidateRoot* deepest = nullptr;
    for (const AIToolCandidateRoot& root : candidateRoots) {
        // Component by component without taking the path apart: this is asked for every entry.
        std::string_view rest = root.relativePath;
        std::size_t depth = 0;
        while (!rest.empty() && depth < components.size()) {
            const std::string& component = components[depth];
            if (!rest.starts_with(component)) break;
            if (rest.size() > component.size() && rest[component.size()] != '/') break;
            rest.remove_prefix(std::min(component.size() + 1, rest.size()));
            ++depth;
        }
        if (!rest.empty()) continue;
        if (deepest == nullptr || deepest->relativePath.size() < root.relativePath.size()) {
            deepest = &root;
        }
    }
    return deepest;
}

std::span<const AIToolLayout> AIToolLayouts::all(OperatingSystem system) {
    static const std::vector<AIToolLayout> onMac = aitools::layoutsFor(OperatingSystem::macOS);
    static const std::vector<AIToolLayout> onLinux = aitools::layoutsFor(OperatingSystem::linux_);
    return system == OperatingSystem::macOS ? onMac : onLinux;
}

std::span<const AIToolLayout> AIToolLayouts::all() { return all(platform::operatingSystem()); }

const AIToolLayout& AIToolLayouts::layout(AIToolID tool, OperatingSystem system) {
    return all(system)[static_cast<std::size_t>(tool)];
}

const AIToolLayout& AIToolLayouts::layout(AIToolID tool) {
    return layout(tool, platform::operatingSystem());
}

} // namespace tidyro
