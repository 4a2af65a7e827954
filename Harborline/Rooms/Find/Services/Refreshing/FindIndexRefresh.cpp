#include "Rooms/Find/Services/Refreshing/FindIndexRefresh.h"

#include <algorithm>
#include <cerrno>
#include <stop_token>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "Base/Timestamp.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Find/Services/Refreshing/FindRefreshWalk.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

namespace {

using RefreshEntry = FindIndexStorage::Entry;

struct DescribeRefreshError {
    std::string operator()(FindIndexRefresh::RootChanged /*error*/) const {
        return "Another folder stands where the index was made.";
    }
    std::string operator()(const FindIndexRefresh::Unreadable& error) const {
        return fmt::format("The folder could not be read ({}).", error.error.description());
    }
    std::string operator()(const CancellationError& /*error*/) const {
        return "The look at the folders was cancelled.";
    }
};

/// Makes the changes of one look.
class IndexChanger {
  public:
    IndexChanger(FindIndexStorage& index, const FindIndexChanges& changes)
        : index_(index), before_(index.count()) {
        for (const auto& row : index.folderStamps.rows) stamps_.emplace(row.folder, row.stamp);
        std::size_t fresh = 0;
        for (const auto& folder : changes.folders) fresh += folder.newFolders.size();
        fresh_.resize(fresh, FindIndexStorage::none);
    }

    /// False when the index has no room for it.
    [[nodiscard]] bool make(const FindIndexChanges::Folder& change) {
        const RefreshEntry entry =
            change.number < before_ ? change.number : fresh_[change.number - before_];
        // What lies in a folder that went away meanwhile went with it.
        if (entry == FindIndexStorage::none || index_.isDeletedOrInside(entry)) return true;
        if (change.modified) index_.mtime[entry] = *change.modified;
        switch (change.outcome) {
        case FolderWalk::Outcome::vanished: index_.markDeleted(entry); break;
        case FolderWalk::Outcome::closed:
        case FolderWalk::Outcome::mountPoint:
        case FolderWalk::Outcome::unread: leaveUnread(entry); break;
        case FolderWalk::Outcome::read: return takeListing(entry, change);
        }
        return true;
    }

    void putStamps() {
        FindFolderStamps stamps;
        stamps.rows.reserveMore(stamps_.size());
        for (const auto& [folder, stamp] : stamps_) {
            if (!index_.isDeletedOrInside(folder)) stamps.add(folder, stamp);
        }
        stamps.sort();
        index_.folderStamps = std::move(stamps);
    }

  private:
    void leaveUnread(RefreshEntry folder) {
        index_.replaceChildren(folder, {});
        index_.flags[folder] |= findflag::unread;
        stamps_.erase(folder);
    }

    [[nodiscard]] bool takeListing(RefreshEntry folder, const FindIndexChanges::Folder& change) {
        if (!index_.hasRoomFor(change.listing)) return false;
        const auto made = index_.replaceChildren(folder, change.listing);
        if (change.stamp) {
            stamps_.insert_or_assign(folder, *change.stamp);
        } else {
            stamps_.erase(folder);
        }
        if (!change.newFolders.empty()) {
            std::unordered_map<std::string_view, RefreshEntry> byName;
            for (const RefreshEntry entry : made) byName.emplace(index_.name(entry), entry);
            for (const auto& [number, slot] : change.newFolders) {
                const auto found = byName.find(change.listing.name(slot));
                if (found != byName.end()) fresh_[number - before_] = found->second;
            }
        }
        for (const std::uint32_t slot : change.unread) {
            const auto entry = index_.child(folder, change.listing.name(slot));
            if (entry) leaveUnread(*entry);
        }
        return true;
    }

    FindIndexStorage& index_;
    std::uint32_t before_;            ///< how many entries there were
    std::vector<RefreshEntry> fresh_; ///< the entries of new folders
    std::unordered_map<RefreshEntry, FindFolderStamp> stamps_;
};

} // namespace

std::string FindIndexRefresh::description(const Error& error) {
    return std::visit(DescribeRefreshError{}, error);
}

std::expected<FindIndexChanges, FindIndexRefresh::Error>
FindIndexRefresh::look(const FindIndexStorage& index, const ProgressHandler& progress,
                       const CancelToken& cancel) const {
    auto root = platform::FolderDescriptor::openRoot(index.rootPath);
    if (!root) return std::unexpected(Unreadable{root.error()});
    const auto facts = root->facts();
    if (!facts) return std::unexpected(Unreadable{facts.error()});
    const auto& stamps = index.folderStamps.rows;
    if (stamps.empty() || stamps[0].folder != 0 || stamps[0].stamp.identity != facts->identity) {
        return std::unexpected(RootChanged{});
    }
    const DiskTreeScanner scanner =
        options_.workerCount < 1 ? DiskTreeScanner() : DiskTreeScanner(options_.workerCount);
    FindRefreshWalk walk(
        index, {.walk = {.root = *std::move(root),
                         .rootPath = index.rootPath,
                         .threadName = "Tidyro index refresh",
                         .workerCount = static_cast<std::size_t>(scanner.workerCount),
                         .standInCount = static_cast<std::size_t>(
                             std::max<std::int64_t>(scanner.standInCount, 0)),
                         .skipping = options_.skipping,
                         .skippingContentsOf = options_.skippingContentsOf},
                .progressInterval = options_.progressInterval,
                .progress = progress,
                .settledBefore = Timestamp::now().nanosecondsSince1970() - options_.settledAfter,
                .mayTakeMoved = options_.skipping.empty()});
    const std::stop_callback cancelling(cancel, [&walk] { walk.cancel(); });
    auto changes = walk.run();
    if (changes) return *std::move(changes);
    if (changes.error().code == ECANCELED) return std::unexpected(CancellationError{});
    return std::unexpected(Unreadable{changes.error()});
}

bool FindIndexRefresh::apply(FindIndexChanges changes, FindIndexStorage& index) {
    index.deniedCount = changes.deniedCount;
    if (changes.folders.empty()) return true;
    IndexChanger changer(index, changes);
    for (FindIndexChanges::Folder& folder : changes.folders) {
        if (!changer.make(folder)) return false;
        folder.listing = {}; // two of everything must not stand side by side
    }
    changer.putStamps();
    return true;
}

} // namespace tidyro
