#include "Rooms/Find/Services/Refreshing/FindRefreshWalk.h"

#include <optional>
#include <utility>

#include "Rooms/Find/Services/Building/FindDirectoryReader.h"

namespace tidyro {

FindKnownFolders::FindKnownFolders(const FindIndexStorage& index)
    : index_(index), hasFolders_(index.count()) {
    rows_.append(index.count(), noRow);
    for (std::uint32_t row = 0; row < index.folderStamps.rows.size(); ++row) {
        rows_[index.folderStamps.rows[row].folder] = row;
    }
    for (Entry entry = 1; entry < index.count(); ++entry) {
        if (index.is(entry, findflag::folder)) hasFolders_.add(index.parent[entry]);
    }
}

bool FindKnownFolders::isUnchanged(Entry folder, const platform::FolderFacts& facts) const {
    if (rows_[folder] == noRow || index_.is(folder, findflag::unread)) return false;
    const FindFolderStamp& stamp = index_.folderStamps.rows[rows_[folder]].stamp;
    return stamp.changed == facts.changed && stamp.identity == facts.identity &&
           facts.changed != FindFolderStamp::unsettled;
}

FindIndexStorage::Entry FindKnownFolders::movedFrom(const platform::FolderFacts& facts) const {
    std::call_once(isIdentified_, [this] {
        byIdentity_.reserve(index_.folderStamps.rows.size());
        for (const auto& row : index_.folderStamps.rows) {
            byIdentity_.emplace(row.stamp.identity, row.folder);
        }
    });
    const auto found = byIdentity_.find(facts.identity);
    if (found == byIdentity_.end() || !isUnchanged(found->second, facts)) {
        return FindIndexStorage::none;
    }
    return found->second;
}

bool FindKnownFolders::list(Entry folder, FindDirectoryListing& listing) const {
    listing.clear();
    bool isWhole = true;
    index_.visitChildren(folder, [&](Entry child) {
        if (index_.is(child, findflag::deleted)) return true;
        isWhole = isWhole && !index_.is(child, findflag::unread);
        const bool isFolder = index_.is(child, findflag::folder);
        const bool isHidden = (index_.kind[child] & findkind::hiddenItself) != 0;
        listing.append({.name = index_.name(child),
                        .type = isFolder                              ? FindObjectType::directory
                                : index_.is(child, findflag::symlink) ? FindObjectType::symlink
                                                                      : FindObjectType::file,
                        .size = isFolder ? 0 : index_.size(child),
                        .mtime = index_.mtime[child],
                        .bsdFlags = isHidden ? FindDirectoryListing::hiddenFlag : 0});
        return isWhole;
    });
    return isWhole;
}

/// Looks at the folders in one folder after another, and reads those that changed.
class FindRefreshWalk::Reader : public FolderWalk::Reader {
  public:
    Reader(FindRefreshWalk& walk, const std::atomic<bool>& cancelled)
        : walk_(walk), known_(walk.known_), reader_({.cancelled = &cancelled}) {}

    void begin(Entry folder) override {
        folder_ = folder;
        isNew_ = walk_.isNew(folder);
    }

    SystemError read(const FolderWalk::Visit& visit) override {
        change_ = {.number = folder_, .outcome = FolderWalk::Outcome::read};
        descents_.clear();
        newPlaces_.clear();
        others_.clear();
        isRead_ = isTaken_ = false;
        if (!isNew_ && visit.facts && known_.isUnchanged(folder_, *visit.facts) &&
            !listsWhatIsSkipped(visit)) {
            known_.visitFolders(folder_, [&](Entry child) { look(visit, child); });
            return {0};
        }
        if (const SystemError error = list(visit); error.code != 0) return error;
        isRead_ = true;
        takeListing(visit);
        return {0};
    }

    std::optional<FolderWalk::Handover>
    finish(Entry folder, FolderWalk::Outcome outcome,
           const std::optional<platform::FolderFacts>& facts) override {
        FindIndexChanges& changes = walk_.changes_;
        ++changes.lookedAt;
        changes.deniedCount += outcome == FolderWalk::Outcome::closed ? 1 : 0;
        if (outcome != FolderWalk::Outcome::read) {
            addUnread(folder, outcome, facts);
            return FolderWalk::Handover{};
        }
        changes.lookedAt += leaves_;
        leaves_ = 0;
        if (isRead_) {
            changes.read += isTaken_ ? 0 : 1;
            changes.taken += isTaken_ ? 1 : 0;
            if (facts) {
                change_.modified = facts->modified;
                const bool isSettled = facts->changed < walk_.settledBefore_;
                change_.stamp = {.changed = isSettled ? facts->changed : FindFolderStamp::unsettled,
                                 .identity = facts->identity};
            }
            if (!numberNewFolders()) return std::nullopt;
            changes.folders.push_back(std::move(change_));
        }
        for (FindIndexChanges::Folder& other : others_) {
            changes.folders.push_back(std::move(other));
        }
        return FolderWalk::Handover{.first = 0, .descents = descents_};
    }

  private:
    struct NewPlace {
        std::uint32_t slot;
        const PlaceTree::Branch* places;
    };

    /// A folder that was not read. What is known already need not be told again. A date that cannot
    /// be seen is 0, as it is in an index that was just built.
    void addUnread(Entry folder, FolderWalk::Outcome outcome,
                   const std::optional<platform::FolderFacts>& facts) {
        const FindIndexStorage& index = known_.index();
        const std::uint32_t modified = facts ? facts->modified : 0;
        const bool isKnown = !walk_.isNew(folder) && outcome != FolderWalk::Outcome::vanished &&
                             index.is(folder, findflag::unread) && modified == index.mtime[folder];
        if (isKnown) return;
        walk_.changes_.folders.push_back(
            {.number = folder, .outcome = outcome, .modified = modified});
    }

    [[nodiscard]] bool numberNewFolders() {
        for (const NewPlace& place : newPlaces_) {
            const std::size_t number = known_.index().count() + walk_.fresh_.size();
            if (number >= FindIndexStorage::none) return false;
            const auto folder = static_cast<Entry>(number);
            walk_.fresh_.push_back(
                {.parent = folder_, .name = std::string(change_.listing.name(place.slot))});
            change_.newFolders.push_back({.number = folder, .slot = place.slot});
            descents_.push_back({.slot = folder, .places = place.places});
        }
        return true;
    }

    [[nodiscard]] static const PlaceTree::Branch* placeOf(const FolderWalk::Visit& visit,
                                                          std::string_view name) {
        return visit.places == nullptr ? nullptr : visit.places->child(name);
    }
    [[nodiscard]] static PlaceTree::Mark markOf(const PlaceTree::Branch* place) {
        return place == nullptr ? PlaceTree::Mark::none : place->mark;
    }

    [[nodiscard]] bool listsWhatIsSkipped(const FolderWalk::Visit& visit) const {
        if (visit.places == nullptr) return false;
        bool isListed = false;
        known_.index().visitChildren(folder_, [&](Entry child) {
            isListed =
                !known_.index().is(child, findflag::deleted) &&
                markOf(placeOf(visit, known_.index().name(child))) == PlaceTree::Mark::skipped;
            return !isListed;
        });
        return isListed;
    }

    /// What the folder holds: from the index when it was moved, otherwise from the disk.
    [[nodiscard]] SystemError list(const FolderWalk::Visit& visit) {
        if (isNew_ && visit.facts && walk_.mayTakeMoved_) {
            const Entry before = known_.movedFrom(*visit.facts);
            isTaken_ = before != FindIndexStorage::none && known_.list(before, listed_);
            if (isTaken_) return {0};
        }
        reader_.begin(visit.folder);
        const auto read = reader_.readPart(listed_, FindIndexStorage::none);
        return read ? SystemError{0} : read.error().error;
    }

    /// Makes the listing ready, and picks the folders in it that are to be looked at.
    void takeListing(const FolderWalk::Visit& visit) {
        std::unordered_map<std::string_view, Entry> before;
        if (!isNew_) {
            known_.visitFolders(
                folder_, [&](Entry child) { before.emplace(known_.index().name(child), child); });
        }
        for (std::size_t i = 0; i < listed_.count(); ++i) {
            FindDirectoryListing::Entry entry = listed_.entry(i);
            const PlaceTree::Branch* place = placeOf(visit, entry.name);
            const PlaceTree::Mark mark = markOf(place);
            if (mark == PlaceTree::Mark::skipped) continue;
            const auto slot = static_cast<std::uint32_t>(change_.listing.count());
            if (entry.type == FindObjectType::directory) {
                entry.isMountPoint |= mark == PlaceTree::Mark::mountPoint;
                const bool isDataless = (entry.bsdFlags & FindDirectoryReader::datalessFlag) != 0;
                if (entry.isMountPoint || isDataless || mark != PlaceTree::Mark::none) {
                    // Looking at a mount point may wake a server that never answers.
                    if (!entry.isMountPoint && entry.mtime == 0) {
                        const auto facts = visit.folder.facts(std::string(entry.name).c_str());
                        if (facts) entry.mtime = facts->modified;
                    }
                    change_.unread.push_back(slot);
                } else if (const auto known = before.find(entry.name); known != before.end()) {
                    entry.mtime = known_.index().mtime[known->second];
                    look(visit, known->second);
                } else {
                    newPlaces_.push_back({.slot = slot, .places = place});
                }
            }
            change_.listing.append(entry);
        }
    }

    /// A folder of the index in the one that is visited: most need no more than this look.
    void look(const FolderWalk::Visit& visit, Entry child) {
        const FindIndexStorage& index = known_.index();
        name_.assign(index.name(child));
        const PlaceTree::Branch* place = placeOf(visit, name_);
        // Looking at a mount point may wake a server that never answers.
        if (markOf(place) == PlaceTree::Mark::mountPoint) return leaveUnread(child, 0);
        const auto facts = visit.folder.facts(name_.c_str());
        if (!facts && platform::hasVanished(facts.error())) {
            others_.push_back({.number = child, .outcome = FolderWalk::Outcome::vanished});
            return;
        }
        const bool isDataless = facts && facts->traits.has(platform::EntryTrait::dataless);
        if (isDataless || markOf(place) != PlaceTree::Mark::none) {
            return leaveUnread(child, facts ? facts->modified : 0);
        }
        if (facts && known_.isUnchanged(child, *facts) && !known_.hasFolders(child)) {
            ++leaves_;
            return;
        }
        descents_.push_back({.slot = child, .places = place});
    }

    void leaveUnread(Entry child, std::uint32_t modified) {
        const FindIndexStorage& index = known_.index();
        if (index.is(child, findflag::unread) && index.mtime[child] == modified) return;
        others_.push_back(
            {.number = child, .outcome = FolderWalk::Outcome::mountPoint, .modified = modified});
    }

    FindRefreshWalk& walk_;
    const FindKnownFolders& known_;
    FindDirectoryReader reader_;
    FindDirectoryListing listed_;
    std::string name_;
    // The folder that is looked at
    Entry folder_ = 0;
    bool isNew_ = false;
    bool isRead_ = false;     ///< `change_` tells what it holds
    bool isTaken_ = false;    ///< from the index
    std::int64_t leaves_ = 0; ///< folders that one look from here was enough for
    FindIndexChanges::Folder change_{};
    std::vector<FindIndexChanges::Folder> others_; ///< folders in it that need not be visited
    std::vector<NewPlace> newPlaces_;
    std::vector<FolderWalk::Descent> descents_;
};

FindRefreshWalk::FindRefreshWalk(const FindIndexStorage& index, Options options)
    : known_(index),
      settledBefore_(options.settledBefore),
      mayTakeMoved_(options.mayTakeMoved),
      reports_(std::move(options.progress), options.progressInterval),
      walk_(std::move(options.walk), *this) {}

std::expected<FindIndexChanges, SystemError> FindRefreshWalk::run() {
    if (const auto read = walk_.run(); !read) return std::unexpected(read.error());
    return std::move(changes_);
}

std::unique_ptr<FolderWalk::Reader>
FindRefreshWalk::makeReader(const std::atomic<bool>& cancelled) {
    return std::make_unique<Reader>(*this, cancelled);
}

void FindRefreshWalk::report(std::unique_lock<std::mutex>& lock, Entry /*folder*/) {
    reports_.report(lock, [&] {
        return FindIndexRefresh::Progress{.lookedAt = changes_.lookedAt, .read = changes_.read};
    });
}

} // namespace tidyro
