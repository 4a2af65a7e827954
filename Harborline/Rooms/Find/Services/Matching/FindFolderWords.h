#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindNameRank.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// The words of one `all` that may be in folders: each has to stand in the name of an entry or of a
/// folder above it. The folders above the root count as well.
///
/// What the folders hold is worked out when an entry asks for it, and kept for the next entry of
/// the same folder.
class FindFolderWords {
  public:
    using Entry = FindIndexStorage::Entry;

    /// Storage and names have to outlive it; `node` is an `all` with at least one such word.
    FindFolderWords(const FindIndexStorage& storage, const FindNameScan& names,
                    const FindQueryNode& node);

    /// Takes the entries out of `among` that lack a word.
    void keepMatching(FindEntrySet& among);

    /// Entries, and a fit that is no worse than that of any of them.
    struct Tier {
        FindFit best;
        FindEntrySet entries;
    };
    /// Whether the names were searched for the words, so that `tiers` can be asked.
    [[nodiscard]] bool knowsHolders() const { return !holders_.empty(); }
    /// Takes matches apart, those that may fit best first. Right where the query asks for nothing
    /// in names but the words.
    [[nodiscard]] std::array<Tier, 4> tiers(const FindEntrySet& matches) const;

    /// How the folders are used for an entry, which need not match.
    [[nodiscard]] FindFolderUse use(Entry entry);
    /// The same, but `whole` may be `partly`: this is known sooner.
    [[nodiscard]] FindFolderUse bestPossibleUse(Entry entry);
    /// The words that stand in the entry's own name: a bit for each of `words`.
    [[nodiscard]] std::uint16_t inName(Entry entry) const;
    [[nodiscard]] const std::vector<std::string_view>& words() const { return words_; }

  private:
    static constexpr std::uint16_t isKnown = 0x8000; ///< beside a bit for each word

    struct Holders {
        FindEntrySet holding;   ///< the word in their name
        FindEntrySet beginning; ///< with it
    };

    void findHolders();
    // Entries of one word of a set, a bit for each
    [[nodiscard]] std::uint64_t allInNameAt(std::size_t word) const;
    [[nodiscard]] std::uint64_t matchesAt(std::size_t word, std::uint64_t asked);
    /// The root has no folder in the index, and counts as lying in itself.
    [[nodiscard]] Entry folderOf(Entry entry) const {
        return entry == 0 ? 0 : storage_.parent[entry];
    }
    [[nodiscard]] std::uint16_t inPath(Entry folder);
    [[nodiscard]] bool isWholeName(std::string_view word, Entry folder) const;

    const FindIndexStorage& storage_;
    const FindNameScan& names_;
    std::vector<std::string_view> words_; ///< folded, each once
    bool needsWordInName_;
    std::uint16_t all_; ///< a bit for each word
    std::vector<std::string> rootFolders_;
    std::uint16_t inRoot_ = 0;           ///< the words in the path of the root
    std::vector<Holders> holders_;       ///< of each word, once names were searched for them
    std::vector<std::uint16_t> inPaths_; ///< by folder; 0 where nobody asked yet
    std::vector<Entry> asked_;           ///< kept for its room
};

} // namespace tidyro
