#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>

#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Find/Services/Index/FindDirectoryListing.h"

namespace tidyro {

/// Reads folders that are held open into listings, one after another. One thread uses a reader.
///
///     FindDirectoryReader reader;
///     FindDirectoryListing listing;
///     if (const auto read = reader.read(folder, listing); !read) use(read.error().kind);
class FindDirectoryReader {
  public:
    /// Why a folder could not be opened or read.
    struct Failure {
        enum class Kind : std::uint8_t {
            failed,       ///< for a reason that only the error tells
            missing,      ///< it does not exist any more
            denied,       ///< we may not read it
            notDirectory, ///< it is no folder, but a link for example
        };
        Kind kind;
        SystemError error;

        [[nodiscard]] static Failure fromError(SystemError error);
        bool operator==(const Failure&) const = default;
    };

    struct Options {
        /// Reading fails with ECANCELED once this is true. Outlives the reader.
        const std::atomic<bool>* cancelled = nullptr;
        /// Runs after each bulk read; for tests and diagnostics.
        std::function<void()> afterBulkRead = nullptr;
    };
    FindDirectoryReader() : FindDirectoryReader(Options{}) {}
    explicit FindDirectoryReader(Options options);

    /// Puts the whole folder into the listing, in place of what it held. After a failure the
    /// listing is empty.
    [[nodiscard]] std::expected<void, Failure> read(const platform::FolderDescriptor& folder,
                                                    FindDirectoryListing& listing);

    // The same in parts, so that a huge folder never stands in one listing as a whole. Dates of
    // folders are 0 where the system does not tell them along with the names: asking for each would
    // cost a call, and a walk learns them anyway when it opens the folders.

    void begin(const platform::FolderDescriptor& folder) { lister_.begin(folder); }
    /// Puts the next entries into the listing, at most `maxCount`, in place of what it held. Fewer
    /// mean that the folder ends.
    [[nodiscard]] std::expected<void, Failure> readPart(FindDirectoryListing& listing,
                                                        std::size_t maxCount);

    /// The contents of the item lie in the cloud. Reading such a folder would bring them onto the
    /// disk.
    static constexpr std::uint32_t datalessFlag = 0x40000000;

  private:
    platform::FolderLister lister_;
};

} // namespace tidyro
