#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/LargeFiles.h"
#include "Rooms/Duplicates/Search/ProvenFile.h"
#include "Rooms/Duplicates/Search/ReaderThreads.h"
#include "Rooms/Duplicates/Search/SearchProgress.h"

namespace tidyro {

/// Another name of a file that was read by its first one, or was not worth reading.
struct FurtherName {
    std::uint32_t file; ///< in the listing
    platform::ItemIdentity identity;
};

/// Proves which of the files that agree in their beginning are copies. Files up to `wholeBelow` are
/// read whole at once. Of larger ones both ends are looked at first, and only those that agree in
/// them are read whole, the largest first.
///
/// Every file is read by one of its names only. In the end each is looked at again, since the first
/// may have been read long before the last: what is not there any more, is another file or was
/// written to drops out.
class DuplicateProving {
  public:
    static constexpr std::uint64_t endSize = 65'536;
    static constexpr std::uint64_t wholeBelow = 131'072;

    DuplicateProving(const DuplicateListing& listing, SearchProgress& progress,
                     const CancelToken& cancel)
        : listing_(listing), progress_(progress), cancel_(cancel) {}

    struct Result {
        std::vector<ProvenFile> files;
        std::vector<FurtherName> furtherNames;
    };
    /// `files`: numbers in the listing. `threads` read many small files, or large ones, well.
    [[nodiscard]] Result run(const std::vector<std::uint32_t>& files, ReaderThreads& forSmall,
                             ReaderThreads& forLarge);

  private:
    class FirstReader;
    using Groups = std::vector<std::vector<LargeFile>>;

    [[nodiscard]] Groups lookAtAll(const std::vector<std::uint32_t>& files, ReaderThreads& threads,
                                   Result& result);
    [[nodiscard]] Groups agreeing(std::vector<LargeFile> files, Result& result);
    void confirm(ReaderThreads& threads, Result& result);
    void readWhole(const Groups& groups, ReaderThreads& threads, Result& result);
    [[nodiscard]] std::vector<LargeFile> readSideBySide(const Groups& groups, bool counts,
                                                        ReaderThreads& threads, Result& result);

    const DuplicateListing& listing_;
    SearchProgress& progress_;
    const CancelToken& cancel_;
    DiskTurns turns_;
};

} // namespace tidyro
