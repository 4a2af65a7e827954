#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/LargeFileReader.h"
#include "Rooms/Duplicates/Search/ProvenFile.h"
#include "Rooms/Duplicates/Search/ReaderThreads.h"
#include "Rooms/Duplicates/Search/SearchProgress.h"

namespace tidyro {

/// Another name of a file that was met by its first one.
struct FurtherName {
    std::uint32_t file; ///< in the listing
    platform::ItemIdentity identity;
};

/// Proves which of the files that agree in their beginning are copies. It reads small files whole
/// at once. Of large files it first looks at both ends. Those whose ends agree it reads whole, the
/// largest first.
///
/// Every file is read by one of its names only. In the end each file is looked at again, since the
/// first may have been read long before the last. A file that is gone, was replaced or was written
/// to drops out.
class DuplicateProving {
  public:
    static constexpr std::uint64_t endSize = 65'536;
    static constexpr std::uint64_t maxSmallFile = 131'072;

    DuplicateProving(const DuplicateListing& listing, SearchProgress& progress,
                     const CancelToken& cancel)
        : listing_(listing), progress_(progress), cancel_(cancel) {}

    struct Result {
        std::vector<ProvenFile> files;
        std::vector<FurtherName> furtherNames;
    };
    /// Small and large files are read best by different numbers of threads.
    struct Threads {
        ReaderThreads& small;
        ReaderThreads& large;
    };
    /// `files`: numbers in the listing.
    [[nodiscard]] Result run(const std::vector<std::uint32_t>& files, const Threads& threads);

  private:
    class FirstReader;
    class ManyNamed;
    using AgreeingSets = std::vector<std::vector<LargeFile>>;

    [[nodiscard]] AgreeingSets lookAtAll(const std::vector<std::uint32_t>& files,
                                         ReaderThreads& threads, Result& result);
    [[nodiscard]] AgreeingSets agreeingSets(std::vector<LargeFile> files, Result& result);
    void readWhole(const AgreeingSets& sets, ReaderThreads& threads, Result& result);
    [[nodiscard]] std::vector<LargeFile> readSideBySide(const AgreeingSets& sets,
                                                        LargeFileReader::Time time,
                                                        ReaderThreads& threads, Result& result);
    void confirm(ReaderThreads& threads, Result& result);

    const DuplicateListing& listing_;
    SearchProgress& progress_;
    const CancelToken& cancel_;
    DiskTurns turns_;
};

} // namespace tidyro
