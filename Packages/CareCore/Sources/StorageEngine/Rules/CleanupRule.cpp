#include "StorageEngine/Rules/CleanupRule.h"

#include <cerrno>
#include <utility>

#include "Base/JSONCoding.h"
#include "Base/LoweredPath.h"
#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

namespace tidyro {

CleanupRule::CleanupRule(Options options) : options_(std::move(options)) {
    rootPrefix_ = rootPath().ends_with('/') ? rootPath() : rootPath() + "/";
    rootDepth_ = path::components(rootPath()).size();
    const auto real = FolderResolver::resolved(rootPath());
    if (real && (!options_.expectedRoot || *options_.expectedRoot == *real)) {
        resolvedRoot_ = FileURL::folder(*real);
    }
}

std::string CleanupRule::expectedPlace(std::string_view path) const {
    // Only asked when the root was resolved.
    std::string root = resolvedRoot_.value_or(options_.rootURL).path();
    if (path.size() <= rootPrefix_.size()) return root;
    return path::joined(root, path.substr(rootPrefix_.size()));
}

bool CleanupRule::grantsSafeCleanupAuthority(const FileURL& url) const {
    if (options_.authority != Authority::builtIn || !matches(url.path()) || !resolvedRoot_) {
        return false;
    }
    return FolderResolver::resolved(url.path()) == expectedPlace(url.path());
}

bool CleanupRule::grantsSafeCleanupAuthority(const FileURL& url, FolderResolver& folders) const {
    if (options_.authority != Authority::builtIn || !matches(url.path()) || !resolvedRoot_) {
        return false;
    }
    if (url.path() == rootPath()) return folders.isReallyAt(rootPath(), resolvedRoot_->path());
    const std::string_view folder = path::parent(url.path());
    return folders.isReallyAt(folder,
                              folder == rootPath() ? resolvedRoot_->path() : expectedPlace(folder));
}

bool CleanupRule::isWithinReach(std::string_view path, bool isFolder) const {
    if (!onlyInCacheFolders()) return true;
    if (path.size() <= rootPrefix_.size()) return false;
    const LoweredPath below(path.substr(rootPrefix_.size()));
    return BuiltInRuleRegistry::isCacheOnLinux(below.text(), isFolder);
}

bool CleanupRule::mayBeBuiltHere(std::string_view path) const {
    if (options_.builtHereMark.empty()) return false;
    for (std::string_view at = path; at.size() > rootPath().size();) {
        at = path::parent(at);
        const auto mark = platform::fileMetadata(path::joined(at, options_.builtHereMark));
        if (mark || mark.error().code != ENOENT) return true;
    }
    return false;
}

bool CleanupRule::operator==(const CleanupRule& other) const {
    return id() == other.id() && rootURL() == other.rootURL() && category() == other.category() &&
           minimumAge() == other.minimumAge() && isRegenerable() == other.isRegenerable() &&
           alwaysNeedsReview() == other.alwaysNeedsReview() &&
           onlyInCacheFolders() == other.onlyInCacheFolders() &&
           options_.builtHereMark == other.options_.builtHereMark &&
           authority() == other.authority() && resolvedRootURL() == other.resolvedRootURL();
}

namespace coding {

/// The form in which a rule is written.
struct WrittenRule {
    std::string id;
    FileURL rootURL;
    CleanupCategory category;
    double minimumAge;
    bool isRegenerable;
    CleanupRuleTrust trust;

    static constexpr auto fields() {
        return fieldList<WrittenRule>(field("id", &WrittenRule::id),
                                      field("rootURL", &WrittenRule::rootURL),
                                      field("category", &WrittenRule::category),
                                      field("minimumAge", &WrittenRule::minimumAge),
                                      field("isRegenerable", &WrittenRule::isRegenerable),
                                      field("trust", &WrittenRule::trust));
    }
};

} // namespace coding

namespace {

/// Where the root of a rule that was read has to lie. None when the rule is not one of the
/// registry's, or when its root is nowhere below a home.
std::optional<std::string> registeredRoot(const coding::WrittenRule& written,
                                          const CleanupRuleSpec* spec) {
    const std::string& root = written.rootURL.path();
    if (spec == nullptr || written.trust != CleanupRuleTrust::verifiedBuiltIn ||
        written.category != spec->category) {
        return std::nullopt;
    }
    const std::string below = "/" + std::string(spec->relativePath);
    if (root.size() <= below.size() || !root.ends_with(below)) return std::nullopt;
    const auto home = FolderResolver::resolved(root.substr(0, root.size() - below.size()));
    if (!home) return std::nullopt;
    return path::joined(*home, spec->relativePath);
}

} // namespace

JSON JSONCoder<CleanupRule>::encode(const CleanupRule& rule) {
    const CleanupRuleSpec* spec = BuiltInRuleRegistry::spec(rule.id());
    const bool isReviewKnown =
        spec == nullptr || spec->alwaysNeedsReview || !rule.alwaysNeedsReview();
    const bool isOurs = rule.authority() == CleanupRule::Authority::builtIn &&
                        rule.resolvedRootURL() && isReviewKnown;
    return toJSON(coding::WrittenRule{.id = rule.id(),
                                      .rootURL = rule.rootURL(),
                                      .category = rule.category(),
                                      .minimumAge = rule.minimumAge(),
                                      .isRegenerable = rule.isRegenerable(),
                                      .trust = isOurs ? CleanupRuleTrust::verifiedBuiltIn
                                                      : CleanupRuleTrust::unverified});
}

Decoded<CleanupRule> JSONCoder<CleanupRule>::decode(const JSON& json) {
    const auto written = fromJSON<coding::WrittenRule>(json);
    if (!written) return std::unexpected(written.error());
    const CleanupRuleSpec* spec = BuiltInRuleRegistry::spec(written->id);
    const auto root = registeredRoot(*written, spec);
    return CleanupRule(
        {.id = written->id,
         .rootURL = written->rootURL,
         .category = written->category,
         .minimumAge = written->minimumAge,
         .isRegenerable = written->isRegenerable,
         .alwaysNeedsReview = spec == nullptr || spec->alwaysNeedsReview,
         .onlyInCacheFolders = spec == nullptr || spec->onlyInCacheFolders,
         .builtHereMark = std::string(spec == nullptr ? "" : spec->builtHereMark),
         .authority = root ? CleanupRule::Authority::builtIn : CleanupRule::Authority::unverified,
         .expectedRoot = root});
}

} // namespace tidyro
