#include <array>
#include <string>

#include "StorageEngine/AITools/AIToolTables.h"

namespace tidyro::aitools {

namespace {

using enum CleanupCategory;
using std::to_array;

constexpr auto markers =
    to_array<std::string_view>({"Local State", "Preferences", "User", "machineid",
                                "claude_desktop_config.json", "config.json"});
constexpr auto protectedNames = to_array<std::string_view>({"User",
                                                            "Backups",
                                                            "Workspaces",
                                                            "WebStorage",
                                                            "Local Storage",
                                                            "Session Storage",
                                                            "IndexedDB",
                                                            "Service Worker",
                                                            "Partitions",
                                                            "blob_storage",
                                                            "shared_proto_db",
                                                            "SharedStorage",
                                                            "Shared Dictionary",
                                                            "Cookies",
                                                            "Cookies-journal",
                                                            "Preferences",
                                                            "Local State",
                                                            "Network Persistent State",
                                                            "TransportSecurity",
                                                            "Trust Tokens",
                                                            "Trust Tokens-journal",
                                                            "DIPS",
                                                            "machineid",
                                                            "CachedProfilesData",
                                                            "CachedConfigurations",
                                                            "GPUCache",
                                                            "DawnGraphiteCache",
                                                            "DawnWebGPUCache",
                                                            "VideoDecodeStats",
                                                            "agent-host",
                                                            "claude_desktop_config.json",
                                                            "config.json",
                                                            "extensions"});
constexpr auto patterns = to_array<std::string_view>({"*.json", "*.lock", "*.sock", ".*"});
constexpr auto conversations = to_array<std::string_view>({"agentSessionData"});
/// Claude Desktop runs agents of its own, which keep what they were told here.
constexpr auto claudeConversationNames = to_array<std::string_view>(
    {"agentSessionData", "claude-code-sessions", "local-agent-mode-sessions"});

struct ElectronRow {
    std::string_view root;
    std::string_view suffix;
    std::string_view titleSuffix;
    std::string_view pattern;
    CleanupCategory category;
    std::string_view protectedChildren;
    std::string_view consequence; ///< "{}" stands for the tool's name
    bool isHeld;
    bool isOfVSCodeFamily;
};

constexpr auto electronRows = to_array<ElectronRow>({
    {"Cache/Cache_Data", "-web-cache", " web cache", "*_[0-9s]", regenerableCache,
     "index index-dir", "{} downloads these pages and images again when it next needs them.", true,
     false},
    {"Code Cache", "-code-cache", " compiled script cache", "*/*_[0-9s]", regenerableCache, "",
     "{} compiles these scripts again, which can make the next start a little slower.", true,
     false},
    {"CachedData", "-old-build-cache", " caches for earlier versions", "*/**", regenerableCache,
     ".*",
     "These belong to versions of {} that are no longer installed. The current version's cache is "
     "kept.",
     false, true},
    {"CachedExtensionVSIXs", "-extension-downloads", " downloaded extension packages", "[!.]*",
     temporaryArtifact, ".*",
     "Installed extensions keep working. {} downloads a package again if it needs one, for example "
     "for another profile.",
     false, true},
    {"Crashpad/completed", "-crash-reports", " crash reports", "*.dmp", expiredLog, "",
     "Reports of past crashes. {} does not need them to run.", false, false},
});

struct ElectronTool {
    AIToolID tool;
    std::string_view version;
    std::string_view folder;
    std::string_view appName;
    bool isVSCodeFamily;
    Names conversations;
    std::string_view note;
    Names linuxMarkers; ///< parts of the paths of its executables
    Names linuxProductFiles;
    Names linuxImageProductFiles;
    std::string_view flatpakHome;
};

constexpr auto codePrograms =
    to_array<std::string_view>({"/usr/share/code/", "/opt/visual-studio-code/", "/snap/code/",
                                "/.mount_code", "/.mount_Code", "/.mount_VSCode"});
constexpr auto codeProducts =
    to_array<std::string_view>({"/usr/share/code/resources/app/product.json",
                                "/opt/visual-studio-code/resources/app/product.json",
                                "/snap/code/current/usr/share/code/resources/app/product.json"});
constexpr auto cursorPrograms =
    to_array<std::string_view>({"/cursor", "/opt/Cursor/", "/.mount_Cursor", "/.mount_cursor"});
constexpr auto cursorProducts = to_array<std::string_view>(
    {"/usr/share/cursor/resources/app/product.json", "/opt/Cursor/resources/app/product.json",
     "/opt/cursor/resources/app/product.json",
     "/opt/Cursor/squashfs-root/resources/app/product.json"});
constexpr auto imageProducts = to_array<std::string_view>(
    {"resources/app/product.json", "usr/share/cursor/resources/app/product.json",
     "usr/share/code/resources/app/product.json"});
constexpr auto claudePrograms =
    to_array<std::string_view>({"/usr/lib/claude-desktop/", "/.mount_Claude", "/.mount_claude"});

constexpr auto electronTools = to_array<ElectronTool>({
    {AIToolID::vsCode, "vscode-2026.09.27", "Code", "Visual Studio Code", true, conversations,
     "VS Code keeps chat sessions and file history in its User folder. Clear chat history from the "
     "Chat view, and manage extensions from the Extensions view.",
     codePrograms, codeProducts, imageProducts, ".var/app/com.visualstudio.code/config/Code"},
    {AIToolID::cursor, "cursor-2026.09.27-unverified-install", "Cursor", "Cursor", true,
     conversations,
     "Cursor keeps chats and agent history in its User folder's state databases. Delete chats "
     "inside Cursor.",
     cursorPrograms, cursorProducts, imageProducts, ""},
    {AIToolID::claudeDesktop,
     "claude-desktop-2026.09.27-unverified-install",
     "Claude",
     "Claude",
     false,
     claudeConversationNames,
     "Conversations live in your Claude account, not in this folder. Anything here Tidyro does not "
     "recognise, such as downloaded components, is only measured. Sessions of Claude Code and of "
     "agents that ran inside the app are kept here.",
     claudePrograms,
     {},
     {},
     ""},
});

std::string withName(std::string_view text, std::string_view name) {
    std::string made(text);
    if (const std::size_t at = made.find("{}"); at != std::string::npos) made.replace(at, 2, name);
    return made;
}

std::vector<AIToolCandidateRoot> candidateRoots(const ElectronTool& tool, OperatingSystem system) {
    const std::string name(displayName(tool.tool));
    std::vector<AIToolCandidateRoot> all;
    for (const ElectronRow& row : electronRows) {
        if (row.isOfVSCodeFamily && !tool.isVSCodeFamily) continue;
        const std::string ruleID = std::string(rawValue(tool.tool)) + std::string(row.suffix);
        const std::string title = name + std::string(row.titleSuffix);
        const std::string consequence = withName(row.consequence, name);
        AIToolCandidateRoot root{.relativePath = std::string(row.root),
                                 .recognizers = {recognizer({.root = row.root,
                                                             .ruleID = ruleID,
                                                             .title = title,
                                                             .pattern = row.pattern,
                                                             .extensions = "",
                                                             .group = disposable,
                                                             .category = row.category,
                                                             .consequence = consequence})},
                                 .protectedChildPatterns = words(row.protectedChildren),
                                 .heldWhileAppRuns = row.isHeld};
        if (row.root == "CachedData") {
            const std::string inBundle = "/Applications/" + std::string(tool.appName) +
                                         ".app/Contents/Resources/app/product.json";
            root.buildFolders =
                system == OperatingSystem::macOS
                    ? AIToolBuildFolders{.productFiles = {inBundle, "~" + inBundle}}
                    : AIToolBuildFolders{.productFiles = list(tool.linuxProductFiles),
                                         .productFilesInImage = list(tool.linuxImageProductFiles)};
        }
        all.push_back(std::move(root));
    }
    return all;
}

} // namespace

AIToolLayout electron(AIToolID id, OperatingSystem system) {
    const ElectronTool* tool = electronTools.data();
    while (tool->tool != id) ++tool; // each case has a table here or among the commands
    const bool isOnMac = system == OperatingSystem::macOS;
    AIToolLayout layout{
        .tool = id,
        .layoutVersion = layoutVersion(tool->version, system),
        .homeRelativePath =
            (isOnMac ? "Library/Application Support/" : ".config/") + std::string(tool->folder),
        .homeMarkers = list(markers),
        .protectedNames = set(protectedNames),
        .protectedTopLevelPatterns = list(patterns),
        .conversationTopLevelNames = set(tool->conversations),
        .candidateRoots = candidateRoots(*tool, system),
        .nativeManagementNote = std::string(tool->note),
        .runningAppMarkers =
            isOnMac ? std::vector<std::string>{"/" + std::string(tool->appName) + ".app/Contents/"}
                    : list(tool->linuxMarkers)};
    if (!isOnMac && !tool->flatpakHome.empty()) {
        layout.furtherHomes = {std::string(tool->flatpakHome)};
    }
    return layout;
}

} // namespace tidyro::aitools
