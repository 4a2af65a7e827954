#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Query/FindQuery.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

namespace tidyro::testing {

/// A search that is right because it is simple: every entry is a handful of strings, every
/// condition looks at all of them, and everything that matches is sorted. With the engine it shares
/// only what has tests of its own: the parser, the folding of text and the storage.
class NaiveFind {
  public:
    explicit NaiveFind(const FindIndexStorage& storage);

    struct Question {
        FindScope scope = {};
        std::size_t limit = 500;
        Timestamp now = {};
    };
    [[nodiscard]] FindSearchResult search(std::string_view query, const Question& question) const;

  private:
    struct Text {
        std::string own;
        std::string folded;
    };
    struct Thing {
        Text name;
        Text path;                             ///< below the root, a "/" before each component
        std::vector<std::uint32_t> above;      ///< the folders it lies in, the root last
        std::vector<std::string> components{}; ///< of its absolute path, folded
        bool isGone = false;
        bool isHidden = false;
        bool isSystem = false;
        bool isInPackage = false;
        bool isFilled = false; ///< a folder with entries
    };
    struct Search; ///< one query

    [[nodiscard]] Thing thing(std::uint32_t entry) const;

    const FindIndexStorage& storage_;
    FindIndexStorage placed_; ///< the same with its places rated
    std::vector<Thing> things_;
};

/// Whether a glob is all of a text: "*" any characters, "?" one, a byte that is no UTF-8 among
/// them, every other byte itself.
[[nodiscard]] bool naiveGlob(std::string_view pattern, std::string_view text, bool hasSets);

/// Whether a needle stands in the folded text, or in the own bytes, from one boundary of words to
/// another; at the very beginning, if it has to.
struct NaiveWordPlace {
    std::string_view own;
    std::string_view folded;
    bool inOwn;
    bool atBeginning;
};
[[nodiscard]] bool naiveWord(std::string_view needle, const NaiveWordPlace& place);

} // namespace tidyro::testing
