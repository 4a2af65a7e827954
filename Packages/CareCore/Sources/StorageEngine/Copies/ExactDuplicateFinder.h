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

/// Which of the files that a scan observed have the same contents, proven by a digest of the whole
/// of each.
///
///     const auto groups = ExactDuplicateFinder().findGroups(report.observations);
///     if (!groups) show(ExactDuplicateFinder::description(groups.error()));
///
/// It goes by what it is handed and never walks the disk: a file that was observed twice, or by two
/// of its names, counts as two copies. Only files of a size that another one has are opened, one
/// after another, and without following a link. Cloud placeholders never are, so that nothing is
/// downloaded.
///
/// One file that cannot be opened or read ends the whole call: an answer without it would look
/// complete and not be. What was closed already when it was observed is left out.
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

    /// What would free most first, then by digest; the members of a group by path, in bytes.
    /// Yields the processor after each file.
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
