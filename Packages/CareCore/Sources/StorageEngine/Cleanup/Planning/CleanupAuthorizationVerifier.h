#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "CareDomain/CleanupAuthorization.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Rules/CleanupRule.h"

namespace tidyro {

/// Why an item may not be touched, whatever its plan says.
enum class CleanupAuthorizationError : std::uint8_t {
    missingAuthorization,
    ruleDoesNotCoverItem,
    rootNotAuthorizedInThisSession,
    itemOutsideAuthorizedRoot,
    cannotActOnTheRootItself,
};

/// What a person is told. Only this item is left alone; the others of its plan go on.
[[nodiscard]] std::string_view description(CleanupAuthorizationError error);

/// Tells of the rules of AI tools, for whoever verifies an authorization by one.
class AIToolRuleVerifier {
  public:
    virtual ~AIToolRuleVerifier() = default;
    /// Whether the rule is still known, its root is still a home of that tool, and the rule covers
    /// the item. Asks the disk.
    [[nodiscard]] virtual bool covers(const authorization::AIToolRule& rule,
                                      const FileURL& item) const = 0;
};

/// Answers, right before an item is touched, whether its authorization still lets that happen.
///
///     const CleanupAuthorizationVerifier verifier(
///         {.home = home, .rules = BuiltInCleanupRules::currentUser(home), .sessionRoots =
///         opened});
///     const auto root = verifier.authorizedRoot(entry.authorization, entry.sourceURL);
///     if (!root) refuse(description(root.error()));
///
/// An authorization is a claim that was written down some time ago, so nothing in it is believed. A
/// rule is looked up among rules that were made anew, a chosen folder among those that are open,
/// an application's identifier is read again, and links are resolved on the disk. Immutable: any
/// thread may ask, but a `FolderResolver` belongs to one.
class CleanupAuthorizationVerifier {
  public:
    struct Options {
        FileURL home;
        /// Made anew for this run. A rule that is not a shipped one authorizes nothing.
        std::vector<CleanupRule> rules;
        std::vector<FileURL> sessionRoots = {}; ///< opened by the person in this run
        /// Outlives the verifier. Without one nothing is authorized by the rule of an AI tool.
        const AIToolRuleVerifier* aiToolRules = nullptr;
    };
    explicit CleanupAuthorizationVerifier(Options options);

    /// The file or folder outside which nothing may be touched for this item.
    ///
    /// `folders` remembers where folders really lie, for a run over many items that opens the
    /// folder of each one without following links anyway. Without it the disk is asked each time.
    [[nodiscard]] std::expected<FileURL, CleanupAuthorizationError>
    authorizedRoot(const std::optional<CleanupAuthorization>& claimed, const FileURL& item,
                   FolderResolver* folders = nullptr) const;

    /// Whether the item lies below the root, both as their paths are written and where their links
    /// lead. A root does not contain itself.
    [[nodiscard]] static bool contains(const FileURL& root, const FileURL& item);

  private:
    struct Judge;

    [[nodiscard]] bool isSessionRoot(const FileURL& folder) const;
    [[nodiscard]] bool isInSessionRoot(const FileURL& item) const;

    Options options_;
};

} // namespace tidyro
