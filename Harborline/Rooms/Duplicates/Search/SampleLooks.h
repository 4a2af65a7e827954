#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/ReaderThreads.h"
#include "Rooms/Duplicates/Search/SearchProgress.h"

namespace tidyro {

/// A hash that serves only to tell samples apart: where the hashes differ, the bytes do. Equal
/// hashes prove nothing. `seed` is what was known of the file before, its size or another hash.
[[nodiscard]] std::uint64_t sampleHash(std::span<const std::byte> bytes, std::uint64_t seed);

/// Sorts out, in the cheapest way, most files that have no copy: those of a size that no other file
/// has, and those whose beginning no other file of their size has. It opens each file of a shared
/// size, reads one page and closes it. All else is asked of the few files that are left.
class SampleLooks {
  public:
    static constexpr std::uint64_t beginning = 4'096; ///< bytes: one page, which costs one access

    SampleLooks(const DuplicateListing& listing, ReaderThreads& threads, SearchProgress& progress)
        : listing_(listing), threads_(threads), progress_(progress) {}

    /// The files that agree with another one, as their numbers in the listing, ascending, so that
    /// files of one folder stand together. Names of one file agree with each other.
    [[nodiscard]] std::vector<std::uint32_t> findAgreeing();

  private:
    class Reader;
    struct Sample;

    [[nodiscard]] std::vector<std::uint32_t> filesOfSharedSizes() const;
    [[nodiscard]] static std::vector<std::uint32_t>
    filesOfSharedNumbers(std::vector<Sample> samples);

    const DuplicateListing& listing_;
    ReaderThreads& threads_;
    SearchProgress& progress_;
};

} // namespace tidyro
