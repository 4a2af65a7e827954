#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/RawValues.h"
#include "Base/SystemTexts.h"
#include "CareDomain/CleanupCategory.h"
#include "StorageEngine/AITools/AIToolDecision.h"

namespace tidyro {

/// The AI coding tools whose homes Tidyro knows. The order is the one in which they are shown.
enum class AIToolID : std::uint8_t {
    codex,
    claudeCode,
    vsCode,
    cursor,
    claudeDesktop,
    geminiCLI,
    copilotCLI,
    openCode,
    aider,
};

constexpr RawValueTable<AIToolID, 9> rawValues(RawValueTag<AIToolID>) {
    using enum AIToolID;
    return {{{{codex, "codex"},
              {claudeCode, "claudeCode"},
              {vsCode, "vsCode"},
              {cursor, "cursor"},
              {claudeDesktop, "claudeDesktop"},
              {geminiCLI, "geminiCLI"},
              {copilotCLI, "copilotCLI"},
              {openCode, "openCode"},
              {aider, "aider"}}}};
}

/// What people call the tool.
[[nodiscard]] std::string_view displayName(AIToolID tool);

/// One named rule of one tool: which files inside a candidate root it recognises.
struct AIToolRecognizer {
    std::string ruleID; ///< stable; stands in selections, manifests and receipts
    std::string title;
    AIToolArtifactGroup group; ///< `disposableCache` or `generatedWork`
    CleanupCategory category;
    /// One glob for each component of the path below the root, see `NamePattern`. "**" at the end
    /// stands for one or more components, whatever they are.
    std::vector<std::string> pattern;
    std::set<std::string, std::less<>> extensions; ///< lower case; empty for any
    std::string consequence;                       ///< what removing the files costs
    /// Never removed for good, since the rule rests on less than the tool's own documentation.
    bool isForTrashOnly = false;
    /// Ticked when nobody has chosen yet. Conversations may refer to what other rules find.
    bool isRecommended = true;
    /// The tool itself gives these files names, or contents, that elsewhere tell of a conversation
    /// or a credential.
    bool mayBeNamedLikeConversations = false;
    bool mayContainConversationKeys = false;

    bool operator==(const AIToolRecognizer&) const = default;
};

/// Where the installed application says which of its build folders it uses.
struct AIToolBuildFolders {
    /// Paths of the application's `product.json`, absolute or with "~/" for the user's home.
    std::vector<std::string> productFiles;
    /// The same below the folder at which an image of the application is mounted while it runs.
    std::vector<std::string> productFilesInImage = {};

    bool operator==(const AIToolBuildFolders&) const = default;
};

/// A folder below the home in which cleaning is allowed.
struct AIToolCandidateRoot {
    std::string relativePath; ///< below the home; may hold "/"
    std::vector<AIToolRecognizer> recognizers;
    std::vector<std::string> protectedChildPatterns = {}; ///< for names directly inside the root
    std::optional<AIToolBuildFolders> buildFolders = std::nullopt;
    /// A link, relative to the home, that leads to the one of the root's folders that the tool
    /// uses.
    std::optional<std::string> currentLink = std::nullopt;
    bool heldWhileAppRuns = false; ///< nothing in it may go while the tool's application runs

    bool operator==(const AIToolCandidateRoot&) const = default;
};

/// A store that the tool keeps outside its home.
struct AIToolExternalStore {
    struct Kind {
        /// Present for a store of versions: the link that starts the tool, relative to the user's
        /// home. The version that it leads to is in use. Absent for a store with recognisers only.
        std::optional<std::string> launcherRelativePath = std::nullopt;

        bool operator==(const Kind&) const = default;
    };

    std::string relativeToUserHome;
    Kind kind;
    std::vector<AIToolRecognizer> recognizers;
    std::vector<std::string> protectedChildPatterns = {};
    AIToolDecision protectedDecision = AIToolDecision::currentRuntime;

    bool operator==(const AIToolExternalStore&) const = default;
};

/// Files at the top of a home that may grow very large and that only the tool itself may make
/// smaller.
struct AIToolGrowingFile {
    std::string pattern; ///< for names, see `NamePattern`
    std::string remedy;  ///< how a person has the tool make such a file smaller

    bool operator==(const AIToolGrowingFile&) const = default;
};

/// What Tidyro knows of one tool's home. Nothing else in a home may ever be cleaned.
struct AIToolLayout {
    using Names = std::set<std::string, std::less<>>;

    AIToolID tool;
    /// Part of homes, assessments and manifests: what was approved under another layout counts no
    /// longer.
    std::string layoutVersion;
    std::string homeRelativePath; ///< below the user's home
    /// Where the same home lies for other ways of installing the tool, below the user's home.
    std::vector<std::string> furtherHomes = {};
    std::string environmentVariable = {}; ///< names another home; empty for none
    std::vector<std::string> homeMarkers; ///< two of them prove that a folder is this tool's home
    Names protectedNames;                 ///< at the top of the home
    std::vector<std::string> protectedTopLevelPatterns = {};
    Names conversationTopLevelNames;
    std::vector<AIToolCandidateRoot> candidateRoots;
    std::vector<AIToolExternalStore> externalStores = {};
    std::string nativeManagementNote; ///< how the tool itself manages its history
    std::vector<AIToolGrowingFile> growingFiles = {};
    /// What the path of the tool's application holds while it runs; none for a command.
    std::vector<std::string> runningAppMarkers = {};

    struct Found {
        const AIToolRecognizer* recognizer;
        const AIToolCandidateRoot* root; ///< null for a rule of a store
        std::optional<std::size_t> storeIndex;
    };
    /// The rule with this id, looked for in the candidate roots first. It belongs to the layout.
    [[nodiscard]] std::optional<Found> recognizer(std::string_view id) const;
    /// The deepest candidate root at or above a place below the home; null for none.
    [[nodiscard]] const AIToolCandidateRoot* rootOf(std::span<const std::string> components) const;
    /// What is known of a file of this name at the top of the home; null for nothing.
    [[nodiscard]] const AIToolGrowingFile* growingFile(std::string_view name) const;

    bool operator==(const AIToolLayout&) const = default;
};

/// The layouts that are shipped, for either system.
///
///     const AIToolLayout& codex = AIToolLayouts::layout(AIToolID::codex);
///     const auto rule = codex.recognizer("codex-cache-apps-tools");
///
/// They are made once and never change, so any thread may read them.
struct AIToolLayouts {
    [[nodiscard]] static const AIToolLayout& layout(AIToolID tool);
    [[nodiscard]] static const AIToolLayout& layout(AIToolID tool, OperatingSystem system);
    /// In the order of `AIToolID`.
    [[nodiscard]] static std::span<const AIToolLayout> all();
    [[nodiscard]] static std::span<const AIToolLayout> all(OperatingSystem system);
};

/// Glob patterns for one component of a path: "*" stands for any bytes, "?" for one, "[0-9s]" for
/// one of a class and "[!.]" for one outside it. All else stands for itself, byte by byte. The time
/// is bounded by the product of both lengths, whatever the pattern.
struct NamePattern {
    [[nodiscard]] static bool matches(std::string_view pattern, std::string_view name);
    [[nodiscard]] static bool matchesAny(std::span<const std::string> patterns,
                                         std::string_view name);
    /// Component by component; see `AIToolRecognizer::pattern`.
    [[nodiscard]] static bool matches(std::span<const std::string> pattern,
                                      std::span<const std::string> components);
};

} // namespace tidyro
