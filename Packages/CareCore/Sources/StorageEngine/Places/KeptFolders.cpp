#include "StorageEngine/Places/KeptFolders.h"

#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

/// A selection from very many folders must not remember them all.
constexpr std::size_t maxRememberedFolders = 100'000;

} // namespace

void KeptFolders::add(const std::string& path, Reason reason, Reach reach) {
    std::string real = FolderResolver::resolved(path).value_or(path);
    const auto seen = platform::fileMetadata(real);
    if (!seen) return;
    folders_.try_emplace(seen->identity,
                         Kept{.path = std::move(real), .reason = reason, .reach = reach});
}

const KeptFolders::Kept* KeptFolders::byAnotherPath(const platform::ItemIdentity& folder,
                                                    std::string_view path) const {
    const auto found = folders_.find(folder);
    return found == folders_.end() || found->second.path == path ? nullptr : &found->second;
}

std::optional<KeptFolders::Reason> KeptFolders::reason(const platform::ItemIdentity& folder,
                                                       std::string_view path) const {
    const Kept* found = byAnotherPath(folder, path);
    return found == nullptr ? std::nullopt : std::optional(found->reason);
}

std::optional<KeptFolders::Reason> KeptFolders::reason(const platform::ItemIdentity& folder) const {
    const auto found = folders_.find(folder);
    return found == folders_.end() ? std::nullopt : std::optional(found->second.reason);
}

std::optional<KeptFolders::Reason> KeptFolders::reasonInside(std::string_view path) {
    if (path == "/") return std::nullopt;
    if (const auto known = known_.find(path); known != known_.end()) return known->second;
    if (known_.size() >= maxRememberedFolders) known_.clear();
    auto found = reasonInside(path::parent(path));
    std::string folder(path);
    if (!found) {
        const auto seen = platform::fileMetadata(folder);
        if (!seen) found = Reason::unreadable;
        const Kept* kept = seen ? byAnotherPath(seen->identity, path) : nullptr;
        if (kept != nullptr && kept->reach == Reach::everythingInIt) found = kept->reason;
    }
    known_.emplace(std::move(folder), found);
    return found;
}

} // namespace tidyro
