#include "Rooms/Find/Services/Search/PlainSearch.h"

#include <algorithm>
#include <bit>

#include "Rooms/Find/Services/Matching/FindNameRank.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"

namespace tidyro {

namespace {

/// The longest word is the rarest, as a rule; of equal ones the first.
std::size_t rarestOf(std::span<const std::string> words) {
    std::size_t rarest = 0;
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (words[i].size() > words[rarest].size()) rarest = i;
    }
    return rarest;
}

} // namespace

PlainSearch::PlainSearch(const Options& options)
    : options_(options),
      storage_(options.storage),
      finder_(options.words[rarestOf(options.words)]),
      isRankedByFinder_(rarestOf(options.words) == 0),
      best_(options.storage, options.limit) {
    const std::size_t rarest = rarestOf(options.words);
    for (std::size_t i = 0; i < options.words.size(); ++i) {
        if (i != rarest) others_.push_back(options_.words[i]);
    }
}

bool PlainSearch::hasOtherWords(std::uint32_t entry) const {
    const std::string_view name = storage_.foldedName(entry);
    return std::ranges::all_of(
        others_, [&](std::string_view word) { return name.find(word) != std::string_view::npos; });
}

inline void PlainSearch::remember(std::uint32_t entry) {
    if (!isRemembering_) return;
    if (matches_.size() == options_.maxRemembered) {
        isRemembering_ = false;
        matches_ = {};
        return;
    }
    matches_.push_back(entry);
}

inline void PlainSearch::closeEntry() {
    if (entry_ != none && isWanted_) best_.offer(entry_, rank_);
    entry_ = none;
}

/// The looked-for word stands in the name of an entry at a place of all names. The first place
/// decides on all but one question: whether a word begins at a later one.
inline void PlainSearch::takePlace(std::uint32_t entry, std::uint32_t at) {
    if (entry != entry_) {
        closeEntry();
        entry_ = entry;
        isWanted_ = false;
        if (!options_.mask.has(entry)) return;
        if (!others_.empty() && !hasOtherWords(entry)) return;
        ++matchCount_;
        remember(entry);
        const bool mayBegin = !isRankedByFinder_ || at == storage_.foldedStart[entry];
        isWanted_ = !best_.isOut(entry, mayBegin ? FindNameRank::wholeName : FindNameRank::word);
        if (!isWanted_) return;
        rank_ =
            mayBegin ? nameRank(storage_, entry, options_.words.front()) : FindNameRank::anywhere;
        if (mayBegin) return;
    }
    if (!isWanted_ || rank_ != FindNameRank::anywhere || !isRankedByFinder_) return;
    if (isWordStart(storage_, entry, at - storage_.foldedStart[entry])) rank_ = FindNameRank::word;
}

/// Words of one letter each stand in very many names: which ones, the filter's bits tell. Names
/// that begin with the first letter come first, since they rank best and make the others drop out
/// early.
void PlainSearch::runByLetters() {
    const FindBlockFilter& filter = *options_.filter;
    const std::string_view first = options_.words.front();
    const std::size_t blocks = filter.covered() / FindBlockFilter::blockSize;
    std::vector<std::uint64_t> left(blocks);
    const auto offer = [this](std::size_t block, std::uint64_t bits, FindNameRank best,
                              std::string_view word) {
        for (; bits != 0; bits &= bits - 1) {
            const auto number =
                static_cast<std::uint32_t>(block * FindBlockFilter::blockSize +
                                           static_cast<std::size_t>(std::countr_zero(bits)));
            if (best_.isOut(number, best)) continue;
            best_.offer(number, nameRank(storage_, number, word));
        }
    };
    for (std::size_t block = 0; block < blocks; ++block) {
        std::uint64_t matching = options_.mask.words()[block];
        for (const std::string& word : options_.words)
            matching &= filter.namesWith(word.front())[block];
        matchCount_ += static_cast<std::uint64_t>(std::popcount(matching));
        const std::uint64_t begins = matching & filter.namesBeginningWith(first.front(), block);
        left[block] = matching & ~begins;
        offer(block, begins, FindNameRank::wholeName, first);
    }
    isRemembering_ = false;
    for (std::size_t block = 0; block < blocks && !best_.isOut(FindNameRank::word); ++block) {
        offer(block, left[block], FindNameRank::word, first);
    }
}

void PlainSearch::run() {
    const FindNameScan scan(storage_, options_.filter, options_.cancel);
    std::uint32_t first = 0;
    const bool areLetters =
        options_.filter != nullptr && std::ranges::all_of(options_.words, [&](const auto& word) {
            return word.size() == 1 && options_.filter->namesWith(word.front()) != nullptr;
        });
    if (areLetters) {
        runByLetters();
        first = options_.filter->covered();
    }
    wasCancelled_ = !scan.forEachPlace(
        finder_, first, [this](std::uint32_t entry, std::uint32_t at) { takePlace(entry, at); });
    closeEntry();
}

void PlainSearch::runOver(std::span<const std::uint32_t> entries) {
    for (const std::uint32_t entry : entries) {
        const std::string_view name = storage_.foldedName(entry);
        for (std::size_t at = finder_.find(name, 0); at < name.size();
             at = finder_.find(name, at + 1)) {
            takePlace(entry, storage_.foldedStart[entry] + static_cast<std::uint32_t>(at));
        }
    }
    closeEntry();
}

} // namespace tidyro
