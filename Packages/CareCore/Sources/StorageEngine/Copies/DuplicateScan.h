#pragma once

#include <atomic>
#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/Record.h"
#include "CareDomain/FileObservation.h"
#include "StorageEngine/Copies/ExactDuplicateFinder.h"

namespace tidyro {

/// A set of copies, one of which counts as the original.
struct DuplicateSet {
    FileObservation original;
    std::vector<FileObservation> copies; ///< never empty in a scanner's sets
    std::uint64_t byteCountPerItem;
    std::string contentDigest; ///< SHA-256, lower-case hexadecimal

    [[nodiscard]] const std::string& id() const { return contentDigest; }
    [[nodiscard]] std::int64_t totalCount() const;
    /// What the copies take, saturating.
    [[nodiscard]] std::uint64_t reclaimableByteCount() const;

    static constexpr auto fields() {
        using Self = DuplicateSet;
        return fieldList<Self>(field("original", &Self::original), field("copies", &Self::copies),
                               field("byteCountPerItem", &Self::byteCountPerItem),
                               field("contentDigest", &Self::contentDigest));
    }
    bool operator==(const DuplicateSet&) const = default;
};

struct DuplicateScanResult {
    std::vector<DuplicateSet> sets; ///< those that would free more come first
    std::int64_t filesHashed;
    bool wasTruncated; ///< a bound ended the scan before the smaller sizes
    double duration;   ///< seconds

    [[nodiscard]] static DuplicateScanResult empty();
    bool operator==(const DuplicateScanResult&) const = default;
};

/// Finds duplicates among the files that a scan observed, with bounds on the work: the largest
/// sizes come first, so that a bound leaves out what would have freed least.
///
///     const auto result = DuplicateScanner().scan(observations);
///     if (result && result->wasTruncated) tellThatThereMayBeMore();
///
/// A value; `scan` may run in several threads at once.
class DuplicateScanner {
  public:
    static constexpr std::int64_t defaultMaximumFilesHashed = 4000;
    static constexpr std::int64_t smallestMaximumFilesHashed = 2; ///< one file is no duplicate
    static constexpr std::uint64_t defaultMaximumBytesRead = 8'589'934'592;
    /// The smallest size that options start with. May be set at any moment from any thread;
    /// options and scanners that exist already keep theirs.
    inline static std::atomic<std::uint64_t> minimumFileSize = 1'048'576;

    struct Options {
        std::int64_t maximumFilesHashed = defaultMaximumFilesHashed; ///< raised to the smallest
        std::uint64_t maximumBytesRead = defaultMaximumBytesRead;
        std::uint64_t minimumFileSize = DuplicateScanner::minimumFileSize;
        bool operator==(const Options&) const = default;
    };
    DuplicateScanner();
    explicit DuplicateScanner(const Options& options);

    [[nodiscard]] const Options& options() const { return options_; }

    /// All files of a size are hashed, or none: the first size whose files do not fit into the
    /// bounds ends the scan. The original of a set is the file that was modified first. A file
    /// without a date comes after all that have one, and among equals the path decides.
    [[nodiscard]] std::expected<DuplicateScanResult, ExactDuplicateFinder::Error>
    scan(std::span<const FileObservation> observations, const CancelToken& cancel = {}) const;

  private:
    Options options_;
};

} // namespace tidyro
