#include "Rooms/Find/Services/Building/FindIndexWalk.h"

#include <cerrno>
#include <string>
#include <utility>

#include "Rooms/Find/Services/Building/FindDirectoryReader.h"
#include "Rooms/Find/Services/Building/FindIndexBlock.h"

namespace tidyro {

namespace {

/// Bytes of room in each column from the start: they cost nothing until they are written to, and
/// are enough for each column to be a block of its own. Small blocks would move through the memory
/// of one thread after another as they grow, and leave holes in each.
constexpr std::size_t roomOfAColumn = 1'048'576;

void markUnread(FindIndexStorage& storage, FindIndexStorage::Entry folder) {
    storage.flags[folder] |= findflag::unread;
}

} // namespace

/// Gathers a folder's entries in a block.
class FindIndexWalk::Reader : public FolderWalk::Reader {
  public:
    Reader(FindIndexWalk& index, const std::atomic<bool>& cancelled)
        : index_(index),
          reader_({.cancelled = &cancelled, .afterBulkRead = index.afterBulkRead_}) {}

    void begin(Entry folder) override {
        const FindIndexStorage& storage = index_.storage_;
        inherited_ = {.flags = storage.flags[folder],
                      .marksSystemFolders = folder == 0 && storage.marksSystemFolders};
    }

    SystemError read(const FolderWalk::Visit& visit) override {
        // A huge folder never stands in a listing as a whole.
        constexpr std::size_t entriesOfAPart = 1'024;
        block_.begin(inherited_);
        descents_.clear();
        notEntered_.clear();
        skipped_ = 0;
        reader_.begin(visit.folder);
        do {
            const auto part = reader_.readPart(listing_, entriesOfAPart);
            if (!part) return part.error().error;
            if (visit.places == nullptr) {
                take(visit, listing_);
            } else {
                dropSkipped(*visit.places);
                take(visit, kept_);
            }
        } while (listing_.count() == entriesOfAPart);
        return {0};
    }

    std::optional<FolderWalk::Handover>
    finish(Entry folder, FolderWalk::Outcome outcome,
           const std::optional<platform::FolderFacts>& facts) override {
        using enum FolderWalk::Outcome;
        FindIndexStorage& storage = index_.storage_;
        if (facts) storage.mtime[folder] = facts->modified;
        switch (outcome) {
        case vanished: index_.vanished_.push_back(folder); break;
        case unread: markUnread(storage, folder); break;
        case mountPoint:
            markUnread(storage, folder);
            ++index_.progress_.skipped;
            break;
        case closed:
            markUnread(storage, folder);
            ++storage.deniedCount;
            break;
        case read:
            if (!block_.hasRoomIn(storage)) return std::nullopt;
            if (facts)
                storage.folderStamps.add(folder, FindFolderStamp::taken(*facts, index_.begunAt_));
            return append(folder);
        }
        return FolderWalk::Handover{};
    }

  private:
    FolderWalk::Handover append(Entry folder) {
        FindIndexStorage& storage = index_.storage_;
        FindIndexBuilder::Progress& progress = index_.progress_;
        progress.items += block_.count();
        progress.skipped += skipped_ + static_cast<std::int64_t>(notEntered_.size());
        ++progress.folders;
        const Entry first = block_.moveInto(storage, folder);
        for (const Entry slot : notEntered_) markUnread(storage, first + slot);
        return {.first = first, .descents = descents_};
    }

    /// Makes a part of the listing ready, and picks the folders in it that are to be read.
    void take(const FolderWalk::Visit& visit, FindDirectoryListing& listing) {
        const Entry before = block_.count();
        for (std::size_t i = 0; i < listing.count(); ++i) {
            if (listing.types[i] != FindObjectType::directory) continue;
            const auto slot = before + static_cast<Entry>(i);
            const PlaceTree::Branch* place =
                visit.places == nullptr ? nullptr : visit.places->child(listing.name(i));
            const PlaceTree::Mark mark = place == nullptr ? PlaceTree::Mark::none : place->mark;
            const bool isMountPoint = listing.mountPoints[i] || mark == PlaceTree::Mark::mountPoint;
            const bool isDataless = (listing.bsdFlags[i] & FindDirectoryReader::datalessFlag) != 0;
            if (!isMountPoint && !isDataless && mark == PlaceTree::Mark::none) {
                descents_.push_back({.slot = slot, .places = place});
                continue;
            }
            notEntered_.push_back(slot);
            // Looking at a mount point may wake a server that never answers.
            if (isMountPoint || listing.mtimes[i] != 0) continue;
            const auto facts = visit.folder.facts(std::string(listing.name(i)).c_str());
            if (facts) listing.mtimes[i] = facts->modified;
        }
        block_.add(listing);
    }

    /// Copies the part of the listing without what is skipped.
    void dropSkipped(const PlaceTree::Branch& places) {
        kept_.clear();
        for (std::size_t i = 0; i < listing_.count(); ++i) {
            const PlaceTree::Branch* place = places.child(listing_.name(i));
            if (place != nullptr && place->mark == PlaceTree::Mark::skipped) {
                ++skipped_;
            } else {
                kept_.append(listing_.entry(i));
            }
        }
    }

    FindIndexWalk& index_;
    FindDirectoryReader reader_;
    FindIndexBlock::Folder inherited_{};
    FindDirectoryListing listing_; ///< a part of the folder
    FindDirectoryListing kept_;    ///< of that part, without what is skipped
    FindIndexBlock block_;
    std::vector<FolderWalk::Descent> descents_;
    std::vector<Entry> notEntered_; ///< slots of folders that are listed only
    std::int64_t skipped_ = 0;      ///< entries that are not even listed
};

FindIndexWalk::FindIndexWalk(Options options)
    : afterBulkRead_(std::move(options.afterBulkRead)),
      reports_(std::move(options.progress), options.progressInterval),
      storage_(options.walk.rootPath, options.marksSystemFolders),
      walk_(std::move(options.walk), *this) {
    storage_.reserveColumns(roomOfAColumn);
    storage_.appendRoot(storage_.rootPath, 0);
}

std::expected<FindIndexStorage, FindIndexBuilder::Error> FindIndexWalk::run() {
    if (const auto read = walk_.run(); !read) {
        switch (read.error().code) {
        case ECANCELED: return std::unexpected(CancellationError{});
        case EOVERFLOW: return std::unexpected(FindIndexBuilder::TooLarge{});
        default: return std::unexpected(FindIndexBuilder::Unreadable{read.error()});
        }
    }
    if (reports_.hasHandler()) reports_.reportLast(progressAt(0));
    // Their places stay taken: the numbers of all others are in use by now.
    for (const Entry entry : vanished_) storage_.markDeleted(entry);
    storage_.aggregateFolderSizes();
    storage_.folderStamps.sort();
    return std::move(storage_);
}

std::unique_ptr<FolderWalk::Reader> FindIndexWalk::makeReader(const std::atomic<bool>& cancelled) {
    return std::make_unique<Reader>(*this, cancelled);
}

void FindIndexWalk::report(std::unique_lock<std::mutex>& lock, Entry folder) {
    reports_.report(lock, [&] { return progressAt(folder); });
}

FindIndexBuilder::Progress FindIndexWalk::progressAt(Entry folder) const {
    FindIndexBuilder::Progress progress = progress_;
    progress.currentPath = storage_.path(folder);
    return progress;
}

} // namespace tidyro
