#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Lets a search pass over most names unread. It knows the groups of three bytes that stand in each
/// block of 64 names, the names that hold each letter, digit and common sign, and the first byte of
/// each name.
///
/// Groups share a fixed count of numbers. Each number has a bit for every block, side by side, so
/// that a question reads a few short runs of memory. For each entry the groups take 16 bytes, the
/// letters 5 and the first byte 1.
///
/// The filter covers the whole stretches of 64 blocks that the storage had when the filter was
/// made. It stays right while entries are appended, since names never change. Any thread may ask
/// it.
class FindBlockFilter {
  public:
    static constexpr std::size_t blockSize = 64; ///< names; a word of a mask

    /// Covers nothing when it is cancelled before the end.
    FindBlockFilter(const FindIndexStorage& storage, const CancelToken& cancel);

    /// Entries below this are covered; a multiple of `blockSize`.
    [[nodiscard]] std::uint32_t covered() const { return covered_; }

    /// The blocks whose names may hold the needle: a bit for each covered block, 64 in a word. All
    /// blocks for a needle of fewer than three bytes.
    [[nodiscard]] std::vector<std::uint64_t> blocksThatMayHold(std::string_view needle) const;

    /// The names that hold a letter, digit or common sign when they are folded: a bit for each
    /// covered entry. Null for other bytes.
    [[nodiscard]] const std::uint64_t* namesWith(char byte) const;
    /// The same for each byte of a text that there are bits for: what holds the text is in all.
    [[nodiscard]] std::vector<const std::uint64_t*> namesWithEach(std::string_view text) const;
    /// The folded names of a block that begin with the byte, or with a dot and the byte: a bit for
    /// each of its 64 entries.
    [[nodiscard]] std::uint64_t namesBeginningWith(char byte, std::size_t block) const;

  private:
    static constexpr std::size_t numbers = 8'192;
    static constexpr std::size_t stretch = 64; ///< blocks whose bits lie in one word
    static constexpr std::size_t letters = 40; ///< a to z, 0 to 9, and four common signs

    struct Stretch;

    [[nodiscard]] static std::size_t numberOf(std::uint32_t group) {
        constexpr std::uint32_t mixing = 0x9E3779B1; // the golden ratio in 32 bits
        return group * mixing >> 19U;
    }
    void readBlock(const FindIndexStorage& storage, std::size_t block, Stretch& into);
    void take(const Stretch& blocks, std::size_t at);

    std::uint32_t covered_ = 0;
    std::size_t stretches_ = 0;
    std::vector<std::uint64_t> groups_; ///< for each number the words of all stretches
    std::array<std::vector<std::uint64_t>, letters> letters_;
    std::vector<char> firstBytes_;       ///< behind a dot at the beginning
    std::vector<std::uint64_t> withDot_; ///< names that begin with one, a bit for each
};

} // namespace tidyro
