#pragma once

#include <cstdint>
#include <string_view>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Where the text that was typed stands in a name, the best place first.
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

    /// The smaller the better. Whatever holds all words in its name comes before the others.
    [[nodiscard]] constexpr std::uint8_t standing() const {
        constexpr unsigned inFolders = 128;
        constexpr unsigned inPartOfFolder = 1;
        const unsigned own = static_cast<unsigned>(rank) * 2;
        switch (folders) {
        case FindFolderUse::none: return static_cast<std::uint8_t>(own);
        case FindFolderUse::whole: return static_cast<std::uint8_t>(inFolders + own);
        case FindFolderUse::partly:
            return static_cast<std::uint8_t>(inFolders + own + inPartOfFolder);
        case FindFolderUse::unmet: break;
        }
        return 255;
    }
    [[nodiscard]] constexpr bool isBetter(const FindFit& other) const {
        return standing() < other.standing();
    }
    bool operator==(const FindFit&) const = default;
};

/// The rank of an entry whose folded name holds the needle. The needle is folded and not empty.
[[nodiscard]] FindNameRank nameRank(const FindIndexStorage& storage, std::uint32_t entry,
                                    std::string_view needle);

/// Whether a word begins at this byte of an entry's folded name, which must not be the first byte.
/// Words begin behind bytes that are no letter or digit, and where a capital follows a small
/// letter. The latter is seen in ASCII names only: in others the folded name may have its letters
/// elsewhere.
[[nodiscard]] bool isWordStart(const FindIndexStorage& storage, std::uint32_t entry,
                               std::size_t at);

} // namespace tidyro
