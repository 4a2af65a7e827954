#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/JSONForward.h"
#include "Base/RawValues.h"
#include "CareDomain/CleanupCategory.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

/// Whether a rule is one of ours, as it is written in files.
enum class CleanupRuleTrust : std::uint8_t { verifiedBuiltIn, unverified };

constexpr RawValueTable<CleanupRuleTrust, 2> rawValues(RawValueTag<CleanupRuleTrust>) {
    using enum CleanupRuleTrust;
    return {{{{verifiedBuiltIn, "verifiedBuiltIn"}, {unverified, "unverified"}}}};
}

/// A cleanup rule bound to a real folder: items in it may be offered without asking.
///
///     const CleanupRule rule({.id = "npm-cache",
///                             .rootURL = home.appendingFolder(".npm/_cacache"),
///                             .category = CleanupCategory::regenerableCache,
///                             .minimumAge = 30 * 86'400.0,
///                             .isRegenerable = true});
///     const bool isGranted = rule.grantsSafeCleanupAuthority(file);
///
/// Making or reading a rule asks the disk once where its root really lies. From then on matching
/// compares texts only. A rule does not change, so any thread may ask it.
class CleanupRule {
  public:
    enum class Authority : std::uint8_t { builtIn, unverified };

    struct Options {
        std::string id;
        FileURL rootURL;
        CleanupCategory category;
        double minimumAge;  ///< seconds
        bool isRegenerable; ///< its owner builds the material again when it is needed
        bool alwaysNeedsReview = false;
        bool onlyInCacheFolders = false; ///< below an application's support folder on Linux
        std::string builtHereMark = {};  ///< see `CleanupRuleSpec`
        Authority authority = Authority::builtIn;
        /// Where the root lies when no link leads away from it. A rule whose root really lies
        /// elsewhere grants nothing, because a link by a cache's name may lead to anybody's files.
        /// When this is absent, links may lead to the root.
        std::optional<std::string> expectedRoot = std::nullopt;
    };
    explicit CleanupRule(Options options);

    [[nodiscard]] const std::string& id() const { return options_.id; }
    [[nodiscard]] const FileURL& rootURL() const { return options_.rootURL; }
    [[nodiscard]] CleanupCategory category() const { return options_.category; }
    [[nodiscard]] double minimumAge() const { return options_.minimumAge; }
    [[nodiscard]] bool isRegenerable() const { return options_.isRegenerable; }
    [[nodiscard]] bool alwaysNeedsReview() const { return options_.alwaysNeedsReview; }
    [[nodiscard]] bool onlyInCacheFolders() const { return options_.onlyInCacheFolders; }
    [[nodiscard]] Authority authority() const { return options_.authority; }
    [[nodiscard]] const std::string& rootPath() const { return options_.rootURL.path(); }
    /// `rootPath` with a "/" at its end.
    [[nodiscard]] const std::string& rootPrefix() const { return rootPrefix_; }
    /// How many components the root has.
    [[nodiscard]] std::size_t rootDepth() const { return rootDepth_; }
    /// The root with its links resolved. None when the system does not say where it lies, or when
    /// that is not the expected place; the rule then grants nothing.
    [[nodiscard]] const std::optional<FileURL>& resolvedRootURL() const { return resolvedRoot_; }

    /// Whether a standardised path is the root or lies below it, by its text.
    [[nodiscard]] bool matches(std::string_view path) const {
        if (path.size() < rootPrefix_.size()) return path == rootPath();
        // Rules share the home as a long beginning: whether the root could end here tells most
        // apart without going over it.
        return path[rootPrefix_.size() - 1] == '/' && path.starts_with(rootPrefix_);
    }

    /// Whether the rule lets the item be cleaned without asking. Only a built-in rule does, and
    /// only when no link on the way from the root to the item leads elsewhere. Asks the disk.
    [[nodiscard]] bool grantsSafeCleanupAuthority(const FileURL& url) const;
    /// The same for an item that is known to be no link itself. Only its folder is resolved, by
    /// `folders`, which remembers.
    [[nodiscard]] bool grantsSafeCleanupAuthority(const FileURL& url,
                                                  FolderResolver& folders) const;

    /// Whether the rule is about a matching item: one for an application's support folder on Linux
    /// reaches only the caches in it.
    [[nodiscard]] bool isWithinReach(std::string_view path, bool isFolder) const;

    /// Whether a matching item lies in a folder that holds something built on this machine, or in
    /// one that cannot be asked. Asks the disk, and only for rules with such a mark.
    [[nodiscard]] bool mayBeBuiltHere(std::string_view path) const;

    /// Equal rules give equal verdicts: where the root really lies counts as well.
    bool operator==(const CleanupRule& other) const;

  private:
    /// Where the item at a matching path lies when no link leads away.
    [[nodiscard]] std::string expectedPlace(std::string_view path) const;

    Options options_;
    std::string rootPrefix_;
    std::size_t rootDepth_;
    std::optional<FileURL> resolvedRoot_;
};

/// Keys: "id", "rootURL", "category", "minimumAge", "isRegenerable", "trust".
///
/// A rule that is read is never more trusting than the one that was written. It is a built-in one
/// only when the registry knows its id and category, and its root lies below some home where the
/// registry says; it is then bound to that home anew, and a link on the way takes its authority. A
/// rule of ours that grants nothing, or that needs review although the registry does not say so, is
/// written as unverified: no key says these things. A rule that the registry does not know always
/// needs review.
template <>
struct JSONCoder<CleanupRule> {
    static JSON encode(const CleanupRule& rule);
    static Decoded<CleanupRule> decode(const JSON& json);
};

} // namespace tidyro
