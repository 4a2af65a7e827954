#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <string_view>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro::testing {

/// The same numbers for the same seed, with every library.
class RandomSource {
  public:
    explicit RandomSource(unsigned seed) : random_(seed) {}

    [[nodiscard]] std::uint32_t below(std::size_t end) {
        return static_cast<std::uint32_t>(random_() % end);
    }
    [[nodiscard]] bool oneIn(std::size_t count) { return below(count) == 0; }
    template <class List>
    [[nodiscard]] const auto& oneOf(const List& list) {
        return list[below(std::size(list))];
    }

  private:
    std::mt19937 random_;
};

/// The moment around which the dates of random trees lie.
constexpr std::uint32_t randomTreeNow = 1'790'000'000;

/// A tree with names in many scripts that share their parts, so that a piece of one name is found
/// in others.
class RandomTree {
  public:
    struct Options {
        std::size_t entries;
        std::string rootPath = "/home/ada";
        bool isDeep = false; ///< a chain of folders beyond the deepest that is counted
    };
    RandomTree(RandomSource& random, const Options& options);

    [[nodiscard]] const FindIndexStorage& storage() const { return storage_; }
    /// One thing is deleted, comes, or a folder is read again. Numbers stay.
    void change();
    /// Numbers change.
    void compact();
    /// An entry other than the root that is there, as long as there is any.
    [[nodiscard]] std::uint32_t anyEntry();

  private:
    [[nodiscard]] std::uint32_t anyFolder();
    [[nodiscard]] std::string name(bool isFolder);
    /// With names that the folder does not hold yet.
    [[nodiscard]] FindDirectoryListing listing(std::uint32_t folder, std::size_t maxCount);

    RandomSource& random_;
    FindIndexStorage storage_;
};

/// What names are made of.
[[nodiscard]] std::string anyStem(RandomSource& random);
/// `count` whole characters of a text from the one at `from`, as far as there are any.
[[nodiscard]] std::string charactersOf(std::string_view text, std::size_t from, std::size_t count);
[[nodiscard]] std::string inCapitals(std::string text); ///< the letters of ASCII
[[nodiscard]] std::size_t characterCount(std::string_view text);

} // namespace tidyro::testing
