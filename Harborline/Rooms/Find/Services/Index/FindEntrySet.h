#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tidyro {

/// A set of entries of one index, a bit for each, 64 in a word. Queries are answered with whole
/// sets, since combining two of them costs next to nothing: a set of a million entries is 125 KB.
///
///     FindEntrySet among(storage.count());
///     among.add(1);
///     among.keepWhere([&](std::uint32_t entry) { return storage.size(entry) > 0; });
///
/// Bits behind the last entry are 0.
class FindEntrySet {
  public:
    using Entry = std::uint32_t;
    static constexpr std::size_t wordBits = 64;

    FindEntrySet() = default;
    /// An empty set with room for the entries below `count`.
    explicit FindEntrySet(Entry count) : count_(count), words_((count + wordBits - 1) / wordBits) {}

    [[nodiscard]] Entry capacity() const { return count_; } ///< entries that it could hold
    [[nodiscard]] bool has(Entry entry) const {
        return (words_[entry / wordBits] >> (entry % wordBits) & 1U) != 0;
    }
    void add(Entry entry) { words_[entry / wordBits] |= std::uint64_t{1} << (entry % wordBits); }
    void remove(Entry entry) {
        words_[entry / wordBits] &= ~(std::uint64_t{1} << (entry % wordBits));
    }
    void addAll() {
        for (std::uint64_t& word : words_) word = ~std::uint64_t{0};
        if (count_ % wordBits != 0) words_.back() >>= wordBits - count_ % wordBits;
    }
    [[nodiscard]] std::vector<std::uint64_t>& words() { return words_; }
    [[nodiscard]] const std::vector<std::uint64_t>& words() const { return words_; }

    [[nodiscard]] Entry size() const {
        std::size_t bits = 0;
        for (const std::uint64_t word : words_) {
            bits += static_cast<std::size_t>(std::popcount(word));
        }
        return static_cast<Entry>(bits);
    }
    [[nodiscard]] bool isEmpty() const {
        return std::ranges::all_of(words_, [](std::uint64_t word) { return word == 0; });
    }

    // The other set has to be of the same index.
    void keepThoseIn(const FindEntrySet& other) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= other.words_[i];
    }
    void add(const FindEntrySet& other) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] |= other.words_[i];
    }
    void remove(const FindEntrySet& other) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= ~other.words_[i];
    }

    /// Calls `visit` with each entry, in order.
    template <class Visit>
    void forEach(const Visit& visit) const {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            for (std::uint64_t left = words_[i]; left != 0; left &= left - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(left));
                visit(static_cast<Entry>(i * wordBits + bit));
            }
        }
    }
    /// Keeps the entries for which `holds` is true. It is asked once for each, in order.
    template <class Holds>
    void keepWhere(const Holds& holds) {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            std::uint64_t kept = words_[i];
            for (std::uint64_t left = kept; left != 0; left &= left - 1) {
                const auto bit = static_cast<unsigned>(std::countr_zero(left));
                const bool stays = holds(static_cast<Entry>(i * wordBits + bit));
                kept &= ~(std::uint64_t{!stays} << bit);
            }
            words_[i] = kept;
        }
    }

  private:
    Entry count_ = 0;
    std::vector<std::uint64_t> words_;
};

} // namespace tidyro
