#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindNameRank.h"

namespace tidyro {

/// Keeps the best of very many hits in little memory. A hit is better by its standing, which counts
/// how well it fits and where it lies, then by lying in the folder that one works in, then by
/// lying less deep, then by a shorter name, then by a later date, then by its path. The result does
/// not depend on the order in which the hits are offered.
class BestHits {
  public:
    /// `workingFolder` is a folder of the storage, or `none`.
    BestHits(const FindIndexStorage& storage, std::size_t limit,
             std::uint32_t workingFolder = FindIndexStorage::none);

    /// Whether a hit that fits no better can no longer be among the best, so that it need not be
    /// offered.
    [[nodiscard]] bool isOut(const FindFit& fit) const { return isFull_ && keyOf(fit) > worst_; }
    /// The same for one entry, whose depth and length count as well.
    [[nodiscard]] bool isOut(std::uint32_t entry, const FindFit& fit) const {
        if (!isFull_) return false;
        if (isOut(fit)) return true;
        // Mostly the depth tells, and the length need not be read from memory.
        const std::uint64_t shortest = shortestKeyOf(entry, fit);
        const std::uint64_t worst = worst_ >> lowerKeyBits;
        return limit_ == 0 || shortest > worst || shortest + lengthOf(entry) > worst;
    }
    void offer(std::uint32_t entry, const FindFit& fit);
    /// Hands out the hits, the best first, and is empty afterwards.
    [[nodiscard]] std::vector<std::uint32_t> take();

  private:
    struct Hit {
        std::uint64_t key;
        std::uint32_t entry;
    };
    // From the highest bits: the standing, 7 bits; 1 outside of the working folder; the depth, the
    // length, and the date.
    [[nodiscard]] static constexpr std::uint64_t keyOf(const FindFit& fit) {
        return std::uint64_t{fit.standing()} << 57U;
    }
    static constexpr unsigned lowerKeyBits = 32; ///< the date
    [[nodiscard]] std::uint64_t shortestKeyOf(std::uint32_t entry, const FindFit& fit) const {
        const auto standing =
            std::min<unsigned>(fit.standing() + storage_->placeCost(entry), FindFit::maxStanding);
        return std::uint64_t{standing} << 25U | std::uint64_t{storage_->depth[entry]} << 16U;
    }
    [[nodiscard]] bool isOutside(std::uint32_t entry) const;
    [[nodiscard]] std::uint64_t lengthOf(std::uint32_t entry) const {
        constexpr std::uint32_t maxLength = 0xFFFF;
        const auto [begin, end] = storage_->nameRange(entry);
        return std::min(end - begin, maxLength);
    }
    [[nodiscard]] std::uint64_t keyOf(std::uint32_t entry, const FindFit& fit) const;
    [[nodiscard]] bool isBetter(const Hit& a, const Hit& b) const;

    const FindIndexStorage* storage_;
    std::size_t limit_;
    std::uint32_t workingFolder_;
    std::vector<Hit> hits_; ///< a heap, the worst on top, once it is full
    bool isFull_ = false;
    std::uint64_t worst_ = 0;
};

/// Whether the path of one entry comes before that of another, byte by byte.
[[nodiscard]] bool isBeforeByPath(const FindIndexStorage& storage, std::uint32_t a,
                                  std::uint32_t b);

} // namespace tidyro
