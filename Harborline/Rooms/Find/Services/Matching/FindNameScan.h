#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindBlockFilter.h"
#include "Rooms/Find/Services/Matching/NeedleFinder.h"

namespace tidyro {

/// Looks for a needle in all folded names at once. The folded names are one run of bytes in the
/// order of the entries. It is searched from end to end, and blocks that cannot hold the needle are
/// passed over.
class FindNameScan {
  public:
    using Entry = FindIndexStorage::Entry;

    /// The filter is null while none is ready. All three have to outlive the scan.
    FindNameScan(const FindIndexStorage& storage, const FindBlockFilter* filter,
                 const CancelToken& cancel)
        : storage_(storage), filter_(filter), cancel_(cancel) {}

    /// The entries whose folded name holds the needle, which must not be empty. Some may be missing
    /// once the search was cancelled.
    [[nodiscard]] FindEntrySet holding(std::string_view needle) const;

    /// Calls `visit(word, found)` for each word of the set in which names hold the needle, in
    /// order; `found` tells which of the entries of that word. Entries outside of `among` are left
    /// out. Returns false when it was cancelled before the end.
    template <class Visit>
    bool forEachWord(const NeedleFinder& finder, const FindEntrySet& among,
                     const Visit& visit) const;

    /// All entries whose own name holds the bytes, and some others. A run of ASCII bytes in a name
    /// is in the folded name as well, so the longest run of the bytes is looked for there.
    [[nodiscard]] FindEntrySet candidatesForOwn(std::string_view bytes) const;

    /// Calls `visit(entry, at)` for each place in `foldedNames` where the needle stands within one
    /// name, in order. Returns false when it was cancelled before the end.
    template <class Visit>
    bool forEachPlace(const NeedleFinder& finder, const Visit& visit) const;

  private:
    /// How many entries are searched before it asks again whether it was cancelled.
    static constexpr Entry entriesAtOnce = 16'384;

    template <class Visit>
    void visitPlaces(const NeedleFinder& finder, Entry from, Entry to, const Visit& visit) const;

    void fetchFew(std::uint64_t entries, std::size_t word) const;

    /// The entry whose name holds a place. It is one of `entry` up to, not including, `end`.
    [[nodiscard]] Entry entryAt(std::uint32_t place, Entry entry, Entry end) const;

    const FindIndexStorage& storage_;
    const FindBlockFilter* filter_;
    const CancelToken& cancel_;
};

template <class Visit>
bool FindNameScan::forEachWord(const NeedleFinder& finder, const FindEntrySet& among,
                               const Visit& visit) const {
    static_assert(FindBlockFilter::blockSize == FindEntrySet::wordBits);
    static_assert(FindBlockFilter::blockSize == NeedleFinder::Names::count);
    constexpr std::size_t size = FindEntrySet::wordBits;
    const std::string_view text(storage_.foldedNames.data(), storage_.foldedNames.size());
    const std::size_t count = storage_.count();
    const std::size_t covered = filter_ == nullptr ? 0 : filter_->covered() / size;
    std::vector<std::uint64_t> blocks; // a bit for each
    std::vector<const std::uint64_t*> letters;
    if (covered > 0) {
        blocks = filter_->blocksThatMayHold(finder.needle());
        letters = filter_->namesWithEach(finder.needle());
    }
    const bool isLetter = finder.needle().size() == 1 && !letters.empty();
    const auto askedAt = [&](std::size_t i) {
        std::uint64_t asked = among.words()[i];
        if (i >= covered) return asked;
        if ((blocks[i / size] >> (i % size) & 1U) == 0) return std::uint64_t{0};
        for (const std::uint64_t* with : letters) asked &= with[i];
        return asked;
    };
    std::array<std::uint64_t, 16> ahead{};
    for (std::size_t i = 0; i < among.words().size(); ++i) {
        if (i * size % entriesAtOnce == 0 && cancel_.stop_requested()) return false;
        if (i % ahead.size() == 0) {
            for (std::size_t k = 0; k < ahead.size(); ++k) {
                ahead[k] = i + k < among.words().size() ? askedAt(i + k) : 0;
                if (!isLetter) fetchFew(ahead[k], i + k);
            }
        }
        std::uint64_t asked = ahead[i % ahead.size()];
        if (asked == 0) continue;
        NeedleFinder::InNames found;
        if (i < covered && isLetter) { // then the filter has told it all
            found.holding = asked;
            found.beginning = asked & filter_->namesBeginningWith(finder.needle().front(), i);
        } else if ((i + 1) * size <= count) {
            found = finder.inNames(
                asked, {.text = text, .starts = storage_.foldedStart.data() + i * size});
        } else {
            for (; asked != 0; asked &= asked - 1) { // fewer names than a block has
                const auto bit = static_cast<unsigned>(std::countr_zero(asked));
                const std::string_view name =
                    storage_.foldedName(static_cast<Entry>(i * size + bit));
                const bool isIn = name.find(finder.needle()) != std::string_view::npos;
                found.holding |= std::uint64_t{isIn} << bit;
            }
            found.beginning = found.holding;
        }
        if (found.holding != 0) visit(i, found);
    }
    return true;
}

template <class Visit>
bool FindNameScan::forEachPlace(const NeedleFinder& finder, const Visit& visit) const {
    for (Entry from = 0; from < storage_.count();) {
        if (cancel_.stop_requested()) return false;
        const Entry to = from + std::min(entriesAtOnce, storage_.count() - from);
        visitPlaces(finder, from, to, visit);
        from = to;
    }
    return true;
}

/// The processor sees by itself that most names are read one after another, but not which few.
inline void FindNameScan::fetchFew(std::uint64_t entries, std::size_t word) const {
    constexpr int few = 24;
    if (std::popcount(entries) > few) return;
    for (; entries != 0; entries &= entries - 1) {
        const std::size_t entry =
            word * FindEntrySet::wordBits + static_cast<std::size_t>(std::countr_zero(entries));
        __builtin_prefetch(storage_.foldedNames.data() + storage_.foldedStart[entry]);
    }
}

inline FindNameScan::Entry FindNameScan::entryAt(std::uint32_t place, Entry entry,
                                                 Entry end) const {
    constexpr Entry far = 64;
    constexpr Entry few = 8; // compared at once, without a branch that nobody can predict
    const std::uint32_t* starts = storage_.foldedStart.data();
    if (end - entry > far && starts[entry + far] <= place) {
        return static_cast<Entry>(std::upper_bound(starts + entry, starts + end, place) - starts) -
               1;
    }
    while (end - entry > few) {
        Entry passed = 0;
        for (Entry i = 1; i <= few; ++i) passed += starts[entry + i] <= place ? 1 : 0;
        entry += passed;
        if (passed < few) return entry;
    }
    while (starts[entry + 1] <= place) ++entry;
    return entry;
}

template <class Visit>
void FindNameScan::visitPlaces(const NeedleFinder& finder, Entry from, Entry to,
                               const Visit& visit) const {
    std::array<std::uint32_t, 256> places{};
    const std::uint32_t* starts = storage_.foldedStart.data();
    const std::string_view text(storage_.foldedNames.data(), starts[to]);
    const std::size_t length = finder.needle().size();
    Entry entry = from;
    for (std::size_t at = starts[from]; at < text.size();) {
        const std::size_t found = finder.findSome(text, at, places);
        for (std::size_t i = 0; i < found; ++i) {
            const std::uint32_t place = places[i];
            entry = entryAt(place, entry, to);
            if (place + length <= starts[entry + 1]) visit(entry, place);
        }
    }
}

} // namespace tidyro
