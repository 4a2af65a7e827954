#pragma once

#include <cstdint>
#include <vector>

#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/ReaderThreads.h"
#include "Rooms/Duplicates/Search/SearchProgress.h"

namespace tidyro {

/// The first and cheapest way to find out which files have no copy: a size that no other file has,
/// or a beginning that no file of that size has. It opens each file of a shared size, reads one
/// page and closes it again; all else is asked of the few that are left.
class SampleLooks {
  public:
    static constexpr std::uint64_t beginning = 4'096; ///< bytes: one page, which costs one access

    SampleLooks(const DuplicateListing& listing, ReaderThreads& threads, SearchProgress& progress)
        : listing_(listing), threads_(threads), progress_(progress) {}

    /// The files that agree with another one, as their numbers in the listing, ascending: files of
    /// one folder stand together. All names of one file are among them.
    [[nodiscard]] std::vector<std::uint32_t> agreeing();

  private:
    class Reader;

    [[nodiscard]] std::vector<std::uint32_t> ofSharedSizes() const;

    const DuplicateListing& listing_;
    ReaderThreads& threads_;
    SearchProgress& progress_;
};

} // namespace tidyro
