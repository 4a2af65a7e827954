#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/SystemError.h"
#include "FolderWalk/FolderWalk.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// What differs between an index and the disk, folder by folder, each behind the one above it.
struct FindIndexChanges {
    /// A folder that is not in the index yet, among those that a changed folder lists.
    struct NewFolder {
        std::uint32_t number;
        std::uint32_t slot; ///< its place in the listing
    };
    struct Folder {
        /// The entry, or the number of a new folder: those begin behind the entries of the index.
        std::uint32_t number;
        /// How it was found. Only `read` has a listing.
        FolderWalk::Outcome outcome;
        std::optional<std::uint32_t> modified = std::nullopt;
        std::optional<FindFolderStamp> stamp = std::nullopt;
        FindDirectoryListing listing = {};
        std::vector<NewFolder> newFolders = {};
        std::vector<std::uint32_t> unread = {}; ///< places of folders that are listed only
    };
    std::vector<Folder> folders = {};
    std::int64_t deniedCount = 0;
    std::int64_t lookedAt = 0; ///< folders
    std::int64_t read = 0;     ///< folders among them whose contents were read from the disk
    std::int64_t taken = 0;    ///< moved folders whose contents were taken from the index
};

/// Makes an index true again without reading the whole disk. It looks at every folder, and reads
/// those again that changed since they were read.
///
///     const FindIndexRefresh refresh({});
///     auto changes = refresh.look(storage);
///     if (!changes || !FindIndexRefresh::apply(*std::move(changes), storage)) return buildAnew();
///
/// A folder counts as unchanged when its identity and its date of change are those of its stamp.
/// Nobody can set that date back. A folder without a stamp, or with one that is not settled, is
/// read again. A folder that was moved is known by its identity, and what it holds is taken from
/// the index. Names are true afterwards. Sizes and dates of files are true in folders that were
/// read: a file that grows changes nothing in its folder.
class FindIndexRefresh {
  public:
    struct Options {
        // As the index was built with; see FindIndexBuilder::Options.
        std::set<std::string> skipping = {};
        std::set<std::string> skippingContentsOf = {};
        std::int64_t workerCount = 0;  ///< below 1: what suits the machine
        double progressInterval = 0.5; ///< seconds before the first report and between two
        /// For tests: how old a date of change has to be, in nanoseconds, to be settled.
        std::int64_t settledAfter = FindFolderStamp::coarsestClock;
    };
    struct Progress {
        std::int64_t lookedAt = 0;
        std::int64_t read = 0;
    };
    using ProgressHandler = std::function<void(const Progress&)>;

    /// Another folder stands at the root's path, or it is not known which one stood there.
    struct RootChanged {
        bool operator==(const RootChanged&) const = default;
    };
    struct Unreadable {
        SystemError error;
        bool operator==(const Unreadable&) const = default;
    };
    using Error = std::variant<RootChanged, Unreadable, CancellationError>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const Error& error);

    explicit FindIndexRefresh(Options options) : options_(std::move(options)) {}

    /// Looks at every folder with several threads and changes nothing. `progress` is called from
    /// those threads, never from two at once.
    [[nodiscard]] std::expected<FindIndexChanges, Error>
    look(const FindIndexStorage& index, const ProgressHandler& progress = nullptr,
         const CancelToken& cancel = {}) const;

    /// Makes the changes in the index that was looked at. False when it has no room for them: the
    /// index is then of no use any more.
    [[nodiscard]] static bool apply(FindIndexChanges changes, FindIndexStorage& index);

  private:
    Options options_;
};

} // namespace tidyro
