#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/JSONCoding.h"
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

/// A cleanup rule bound to a real folder.
///
///     const CleanupRule rule({.id = "npm-cache", .rootURL = home.appendingFolder(".npm/_cacache"),
///                             .category = CleanupCategory::regenerableCache,
///                             .minimumAge = 30 * 86'400.0, .isRegenerable = true});
///     rule.grantsSafeCleanupAuthority(file)
///
/// What every test needs of the root is derived once, when the rule is made or read, so that
/// matching compares texts only. Where the root really lies is settled then, too.
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
        Authority authority = Authority::builtIn;
        /// Where the root lies when no link leads away from it. A rule whose root really lies
        /// elsewhere grants nothing: what a cache's name leads to may be anybody's. Absent, the
        /// root may be reached through links.
        std::optional<std::string> expectedRoot = std::nullopt;
    };
    explicit CleanupRule(Options options);

    [[nodiscard]] const std::string& id() const { return options_.id; }
    [[nodiscard]] const FileURL& rootURL() const { return options_.rootURL; }
    [[nodiscard]] CleanupCategory category() const { return options_.category; }
    [[nodiscard]] double minimumAge() const { return options_.minimumAge; }
    [[nodiscard]] bool isRegenerable() const { return options_.isRegenerable; }
    [[nodiscard]] bool alwaysNeedsReview() const { return options_.alwaysNeedsReview; }
    [[nodiscard]] Authority authority() const { return options_.authority; }
    [[nodiscard]] const std::string& rootPath() const { return options_.rootURL.path(); }
    /// `rootPath` with a "/" at its end.
    [[nodiscard]] const std::string& rootPrefix() const { return rootPrefix_; }
    /// How many components the root has.
    [[nodiscard]] std::size_t rootDepth() const { return rootDepth_; }
    /// The root with its links resolved; none when that could not be found out or is not where it
    /// is expected, and then the rule grants nothing.
    [[nodiscard]] const std::optional<FileURL>& resolvedRootURL() const { return resolvedRoot_; }

    /// Whether a standardised path is the root or lies below it, by its text.
    [[nodiscard]] bool matches(std::string_view path) const;

    /// Whether the rule may let the item be cleaned without asking: only a rule of ours, and only
    /// when the item really lies where its path says it does below the rule's real root. What is
    /// reached through a link that leads elsewhere is refused. Asks the disk.
    [[nodiscard]] bool grantsSafeCleanupAuthority(const FileURL& url) const;
    /// The same for an item that was seen to be no link itself: only its folder is resolved, and
    /// through `folders`, which remembers.
    [[nodiscard]] bool grantsSafeCleanupAuthority(const FileURL& url,
                                                  FolderResolver& folders) const;

    bool operator==(const CleanupRule& other) const;

  private:
    /// Where the item at a matching path lies if no link leads away.
    [[nodiscard]] std::string expectedPlace(std::string_view path) const;

    Options options_;
    std::string rootPrefix_;
    std::size_t rootDepth_;
    std::optional<FileURL> resolvedRoot_;
};

/// Keys: "id", "rootURL", "category", "minimumAge", "isRegenerable", "trust". Whether a rule always
/// needs review is not written: it is the registry's to say, and of a rule that the registry does
/// not know it is assumed.
template <>
struct JSONCoder<CleanupRule> {
    static JSON encode(const CleanupRule& rule);
    static Decoded<CleanupRule> decode(const JSON& json);
};

} // namespace tidyro
