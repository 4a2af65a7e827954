#include "StorageEngine/Rules/CleanupRule.h"

#include <utility>

#include "Base/PathText.h"
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

bool CleanupRule::matches(std::string_view path) const {
    if (path.size() < rootPrefix_.size()) return path == rootPath();
    // Rules share the home as a long beginning: whether the root could end here tells most apart
    // without going over it.
    return path[rootPrefix_.size() - 1] == '/' && path.starts_with(rootPrefix_);
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

bool CleanupRule::operator==(const CleanupRule& other) const {
    return id() == other.id() && rootURL() == other.rootURL() && category() == other.category() &&
           minimumAge() == other.minimumAge() && isRegenerable() == other.isRegenerable() &&
           alwaysNeedsReview() == other.alwaysNeedsReview() && authority() == other.authority();
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

JSON JSONCoder<CleanupRule>::encode(const CleanupRule& rule) {
    const bool isOurs = rule.authority() == CleanupRule::Authority::builtIn;
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
    const bool isOurs = written->trust == CleanupRuleTrust::verifiedBuiltIn;
    return CleanupRule({.id = written->id,
                        .rootURL = written->rootURL,
                        .category = written->category,
                        .minimumAge = written->minimumAge,
                        .isRegenerable = written->isRegenerable,
                        .alwaysNeedsReview = spec == nullptr || spec->alwaysNeedsReview,
                        .authority = isOurs ? CleanupRule::Authority::builtIn
                                            : CleanupRule::Authority::unverified});
}

} // namespace tidyro
