#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Where the text that was typed stands in a name, the best place first. A dot that begins the name
/// is not counted, unless the text begins with one.
enum class FindNameRank : std::uint8_t {
    wholeName,     ///< it is the name
    withoutSuffix, ///< it is the name without its extension
    beginning,     ///< at the beginning of the name
    word,          ///< at the beginning of a word in the name
    anywhere,
};

/// How the words that are not in the name of an entry stand in the folders above it.
enum class FindFolderUse : std::uint8_t {
    none,   ///< all words are in the name
    whole,  ///< each of the others is the whole name of a folder
    partly, ///< some are only a part of one
    unmet,  ///< some word is in no folder
};

/// How well an entry fits what was typed.
struct FindFit {
    FindNameRank rank = FindNameRank::anywhere;
    FindFolderUse folders = FindFolderUse::none;

    /// The smaller the better. To this the cost of the entry's place is added, up to
    /// `maxFindPlaceCost`: a whole name in a cache comes behind what begins with the text in a
    /// folder of programs. Whatever holds all words in its name comes before the others.
    [[nodiscard]] constexpr std::uint8_t standing() const {
        constexpr std::uint8_t costs[] = {0, 5, 10, 16, 24};
        constexpr std::uint8_t inFolders = 64;
        constexpr std::uint8_t inPartOfFolder = 6;
        const std::uint8_t own = costs[static_cast<std::size_t>(rank)];
        switch (folders) {
        case FindFolderUse::none: return own;
        case FindFolderUse::whole: return inFolders + own;
        case FindFolderUse::partly: return inFolders + own + inPartOfFolder;
        case FindFolderUse::unmet: break;
        }
        return maxStanding;
    }
    static constexpr std::uint8_t maxStanding = 127;

    [[nodiscard]] constexpr bool isBetter(const FindFit& other) const {
        return standing() < other.standing();
    }
    bool operator==(const FindFit&) const = default;
};

/// The rank of an entry whose folded name holds the needle. The needle is folded and not empty.
[[nodiscard]] FindNameRank nameRank(const FindIndexStorage& storage, std::uint32_t entry,
                                    std::string_view needle);

/// The best rank of an entry whose name may begin with a needle of so many bytes. Only the length
/// of the name is asked, which stands beside those of the entries before it.
[[nodiscard]] inline FindNameRank bestRankOfBeginning(const FindIndexStorage& storage,
                                                      std::uint32_t entry, std::size_t bytes) {
    const std::size_t length = storage.foldedStart[entry + 1] - storage.foldedStart[entry];
    return length <= bytes + 1 ? FindNameRank::wholeName // with a dot before it
                               : FindNameRank::withoutSuffix;
}

/// Whether a word begins at this byte of an entry's folded name, which must not be the first byte.
/// Words begin behind bytes that are no letter or digit, and where a capital follows a small
/// letter. The latter is seen in ASCII names only: in others the folded name may have its letters
/// elsewhere.
[[nodiscard]] bool isWordStart(const FindIndexStorage& storage, std::uint32_t entry,
                               std::size_t at);

} // namespace tidyro
