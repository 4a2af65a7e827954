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

        [[nodiscard]] static Failure of(SystemError error);
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

    /// The whole folder, in place of what the listing held; after a failure it holds nothing.
    [[nodiscard]] std::expected<void, Failure> read(const platform::FolderDescriptor& folder,
                                                    FindDirectoryListing& listing);

    // The same in parts, for those who do not want a huge folder in one listing. The dates of
    // folders are left open where the system does not tell them along with the names: a walk knows
    // them better once it has opened them.

    void begin(const platform::FolderDescriptor& folder) { lister_.begin(folder); }
    /// The next entries, at most as many as this, in place of what the listing held; none at the
    /// end.
    [[nodiscard]] std::expected<void, Failure> readPart(FindDirectoryListing& listing,
                                                        std::size_t maxCount);

    /// The flag of a file whose contents lie in the cloud: reading a folder of that kind brings
    /// them onto the disk.
    static constexpr std::uint32_t datalessFlag = 0x40000000;

  private:
    platform::FolderLister lister_;
};

} // namespace tidyro
