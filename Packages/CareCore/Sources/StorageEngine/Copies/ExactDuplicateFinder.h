#pragma once

#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "CareDomain/ExactDuplicateGroup.h"

namespace tidyro {

/// Finds the sets of copies among the files that a scan observed: files whose whole contents have
/// the same digest.
///
///     const auto groups = ExactDuplicateFinder().findGroups(observations);
///     if (!groups) show(ExactDuplicateFinder::description(groups.error()));
///
/// It never walks the disk and takes the observations as they are: a file that was observed twice,
/// or by two of its names, counts as two copies. Only files that share their size with another one
/// are opened, one after another, and no link is followed. Cloud placeholders are never opened, so
/// that nothing is downloaded.
///
/// One file that cannot be opened or read ends the whole call, because an answer without it would
/// look complete without being so. Files that were unreadable when they were observed are left out,
/// and so is what a cleanup that was cut short has in a private folder.
///
/// A value; `findGroups` may run in several threads at once.
class ExactDuplicateFinder {
  public:
    struct Unreadable {
        FileURL file;
        SystemError error;
        bool operator==(const Unreadable&) const = default;
    };
    using Error = std::variant<CancellationError, Unreadable>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const Error& error);

    static constexpr std::int64_t defaultReadChunkSize = 1'048'576;
    static constexpr std::int64_t smallestReadChunkSize = 4096;

    /// `readChunkSize`: bytes a read, and the memory that a search takes for contents; raised to
    /// `smallestReadChunkSize`. A cancelled search ends within one such read.
    explicit ExactDuplicateFinder(std::int64_t readChunkSize = defaultReadChunkSize);

    [[nodiscard]] std::int64_t readChunkSize() const { return readChunkSize_; }

    /// Sets that would free more come first, and equal ones by digest. The members of a set are
    /// ordered by the bytes of their paths. Yields the processor after each file.
    [[nodiscard]] std::expected<std::vector<ExactDuplicateGroup>, Error>
    findGroups(std::span<const FileObservation> observations, const CancelToken& cancel = {}) const;

    /// Observations of one size, in the order in which they were handed in.
    using SizeBucket = std::vector<const FileObservation*>;
    /// The files that may be read and are at least so large, by size, largest first. A size that
    /// only one of them has is left out.
    [[nodiscard]] static std::vector<SizeBucket>
    sharedSizes(std::span<const FileObservation> observations, std::uint64_t minimumByteCount);

  private:
    std::int64_t readChunkSize_;
};

} // namespace tidyro
