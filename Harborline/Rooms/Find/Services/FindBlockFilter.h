#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/FindIndexStorage.h"

namespace tidyro {

/// What lets a search pass over most names unread: for each block of 64 names the groups of three
/// bytes that stand in them, for each letter, digit and common sign the names that have it, and the
/// first byte of each name. About 22 bytes an entry.
///
/// Covers the whole blocks that the storage had when it was made, and stays good while the storage
/// only grows: names never change.
class FindBlockFilter {
  public:
    static constexpr std::size_t blockSize = 64; ///< names; a word of a mask

    /// None of it is done once it is cancelled, and then nothing is covered.
    FindBlockFilter(const FindIndexStorage& storage, const CancelToken& cancel);

    /// Entries below this are covered; a multiple of `blockSize`.
    [[nodiscard]] std::uint32_t covered() const { return covered_; }

    /// Tells for one needle which blocks cannot hold it.
    class Question {
      public:
        Question(const FindBlockFilter& filter, std::string_view needle);
        /// False: certainly not. Needles of fewer than three bytes may be anywhere.
        [[nodiscard]] bool mayHold(std::size_t block) const {
            const std::uint64_t* words = filter_.groups_.data() + block * wordsPerBlock;
            for (std::size_t i = 0; i < count_; ++i) {
                if ((words[places_[i] / 64] >> (places_[i] % 64) & 1U) == 0) return false;
            }
            return true;
        }

      private:
        static constexpr std::size_t most = 12; ///< more would hardly tell more

        const FindBlockFilter& filter_;
        std::array<std::uint16_t, most> places_{};
        std::size_t count_ = 0;
    };

    /// A bit an entry: whether its folded name holds the letter, digit or sign. Null for other
    /// bytes.
    [[nodiscard]] const std::uint64_t* namesWith(char byte) const;
    /// The first byte of each folded name; 0 for an empty one.
    [[nodiscard]] const char* firstBytes() const { return firstBytes_.data(); }

  private:
    static constexpr std::size_t bitsPerBlock = 8'192;
    static constexpr std::size_t wordsPerBlock = bitsPerBlock / 64;
    static constexpr std::size_t letters = 40; ///< a to z, 0 to 9, and what parts words

    [[nodiscard]] static std::uint16_t place(std::uint32_t group) {
        constexpr std::uint32_t mixing = 0x9E3779B1; // the golden ratio in 32 bits
        return static_cast<std::uint16_t>(group * mixing >> 19U);
    }
    void fillBlock(const FindIndexStorage& storage, std::size_t block);

    std::uint32_t covered_ = 0;
    std::vector<std::uint64_t> groups_;
    std::array<std::vector<std::uint64_t>, letters> letters_;
    std::vector<char> firstBytes_;
};

} // namespace tidyro
