#include "StorageEngine/Cleanup/Planning/CleanupAuthorizationVerifier.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Platform/Processes/BundleIdentifier.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

namespace {

using enum CleanupAuthorizationError;
using Refusal = std::optional<CleanupAuthorizationError>; ///< none: the claim holds

bool isBelow(const std::string& path, const std::string& root) {
    return path != root && path::isInsideOrEqual(path, root);
}

/// Why an item may not go by a root that it has to lie in. The root itself is named first: it is no
/// item, and no text about where it lies would be true of it.
Refusal refusalOutside(const FileURL& root, const FileURL& item) {
    if (item.path() == root.path()) return cannotActOnTheRootItself;
    return CleanupAuthorizationVerifier::contains(root, item) ? Refusal()
                                                              : itemOutsideAuthorizedRoot;
}

bool isOneName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

} // namespace

std::string_view description(CleanupAuthorizationError error) {
    switch (error) {
    case missingAuthorization:
        return "This item had no record of which folder it came from, so Tidyro left it alone.";
    case ruleDoesNotCoverItem:
        return "Tidyro no longer recognizes this item as something it's allowed to touch, so it "
               "was left alone.";
    case rootNotAuthorizedInThisSession:
        return "The folder this item came from isn't open in this session any more, so it was left "
               "alone. Open that folder and scan again.";
    case itemOutsideAuthorizedRoot:
        return "This item is no longer inside the folder that gave Tidyro permission to touch it, "
               "so it was left alone.";
    case cannotActOnTheRootItself:
        return "Tidyro can only clean what's inside a folder, not the folder itself, so nothing "
               "happened here.";
    }
    fault("an error of an authorization that does not exist");
}

/// Judges a claim by its case.
struct CleanupAuthorizationVerifier::Judge {
    const CleanupAuthorizationVerifier& verifier;
    const FileURL& item;
    FolderResolver* folders;

    Refusal operator()(const authorization::BuiltInRule& claim) const {
        const auto& rules = verifier.options_.rules;
        const auto rule = std::ranges::find_if(rules, [&](const CleanupRule& known) {
            return known.id() == claim.id && known.rootPath() == claim.rootURL.path();
        });
        if (rule == rules.end() || rule->authority() != CleanupRule::Authority::builtIn ||
            !rule->resolvedRootURL() || !rule->matches(item.path())) {
            return ruleDoesNotCoverItem;
        }
        if (item.path() == rule->rootPath()) return cannotActOnTheRootItself;
        if (folders == nullptr) {
            if (const Refusal found = refusalOutside(rule->rootURL(), item)) return found;
        }
        // Stricter than to lie in the root: no link on the way leads anywhere else in it, and the
        // root is where it was when the rule was made.
        const bool isGranted = folders != nullptr ? rule->grantsSafeCleanupAuthority(item, *folders)
                                                  : rule->grantsSafeCleanupAuthority(item);
        return isGranted ? Refusal() : itemOutsideAuthorizedRoot;
    }

    Refusal operator()(const authorization::UserSelectedRoot& claim) const {
        if (!verifier.isSessionRoot(claim.url)) return rootNotAuthorizedInThisSession;
        return refusalOutside(claim.url, item);
    }

    Refusal operator()(const authorization::UserSelectedApplication& claim) const {
        if (item.path() != claim.bundleURL.path()) return itemOutsideAuthorizedRoot;
        const auto identifier = platform::bundleIdentifierOf(item.path());
        return identifier == claim.bundleIdentifier ? Refusal() : ruleDoesNotCoverItem;
    }

    Refusal operator()(const authorization::AIToolRule& claim) const {
        const AIToolRuleVerifier* rules = verifier.options_.aiToolRules;
        if (rules == nullptr || !rules->covers(claim, item)) return ruleDoesNotCoverItem;
        return refusalOutside(claim.rootURL, item);
    }

    Refusal operator()(const authorization::ProjectArtifact& claim) const {
        const FileURL& workspace = claim.workspaceURL;
        const FileURL& project = claim.projectURL;
        if (!verifier.isSessionRoot(workspace)) return rootNotAuthorizedInThisSession;
        if (project.path() != workspace.path() && !contains(workspace, project)) {
            return itemOutsideAuthorizedRoot;
        }
        if (item.path() == project.path()) return cannotActOnTheRootItself;
        if (!isOneName(claim.folderName) ||
            item.path() != path::joined(project.path(), claim.folderName)) {
            return itemOutsideAuthorizedRoot;
        }
        return refusalOutside(project, item);
    }

    Refusal operator()(const authorization::DiskItem& claim) const {
        if (item.path() != claim.itemURL.path()) return itemOutsideAuthorizedRoot;
        if (!claim.placeID) {
            return verifier.isInSessionRoot(item) ? Refusal() : rootNotAuthorizedInThisSession;
        }
        const KnownPlace* place = KnownPlaces::place(item.path(), verifier.options_.home);
        const bool isThere = place != nullptr && place->id == *claim.placeID;
        return isThere ? Refusal() : ruleDoesNotCoverItem;
    }
};

CleanupAuthorizationVerifier::CleanupAuthorizationVerifier(Options options)
    : options_(std::move(options)) {}

bool CleanupAuthorizationVerifier::isSessionRoot(const FileURL& folder) const {
    return std::ranges::any_of(options_.sessionRoots,
                               [&](const FileURL& root) { return root.path() == folder.path(); });
}

bool CleanupAuthorizationVerifier::isInSessionRoot(const FileURL& item) const {
    return std::ranges::any_of(options_.sessionRoots,
                               [&](const FileURL& root) { return contains(root, item); });
}

bool CleanupAuthorizationVerifier::contains(const FileURL& root, const FileURL& item) {
    if (!isBelow(item.path(), root.path())) return false;
    const auto realRoot = FolderResolver::resolved(root.path());
    const auto realItem = FolderResolver::resolved(item.path());
    return realRoot && realItem && isBelow(*realItem, *realRoot);
}

std::expected<FileURL, CleanupAuthorizationError>
CleanupAuthorizationVerifier::authorizedRoot(const std::optional<CleanupAuthorization>& claimed,
                                             const FileURL& item, FolderResolver* folders) const {
    if (!claimed) return std::unexpected(missingAuthorization);
    const Judge judge{.verifier = *this, .item = item, .folders = folders};
    if (const Refusal found = std::visit(judge, casesOf(*claimed))) return std::unexpected(*found);
    return claimed->rootURL();
}

} // namespace tidyro
