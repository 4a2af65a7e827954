#include "Rooms/Find/Services/Search/PlainSearch.h"

#include <bit>

#include "Rooms/Find/Services/Matching/FindNameRank.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"

namespace tidyro {

PlainSearch::PlainSearch(const Options& options)
    : options_(options),
      storage_(options.storage),
      finder_(std::string(options.word)),
      best_(options.storage, options.limit) {}

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
    if (entry_ != none && isWanted_) best_.offer(entry_, {rank_});
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
        ++matchCount_;
        remember(entry);
        const bool isBeginning = at == storage_.foldedStart[entry];
        isWanted_ =
            !best_.isOut(entry, {isBeginning ? FindNameRank::wholeName : FindNameRank::word});
        if (!isWanted_) return;
        rank_ = isBeginning ? nameRank(storage_, entry, options_.word) : FindNameRank::anywhere;
        if (isBeginning) return;
    }
    if (!isWanted_ || rank_ != FindNameRank::anywhere) return;
    if (isWordStart(storage_, entry, at - storage_.foldedStart[entry])) rank_ = FindNameRank::word;
}

/// One letter stands in very many names: in which, the filter's bits tell. Names that begin with it
/// come first, since they rank best and make the others drop out early.
void PlainSearch::runByLetter() {
    const FindBlockFilter& filter = *options_.filter;
    const char letter = options_.word.front();
    const std::uint64_t* with = filter.namesWith(letter);
    const std::size_t blocks = filter.covered() / FindBlockFilter::blockSize;
    std::vector<std::uint64_t> left(blocks);
    const auto offer = [this](std::size_t block, std::uint64_t bits, FindNameRank best) {
        for (; bits != 0; bits &= bits - 1) {
            const auto number =
                static_cast<std::uint32_t>(block * FindBlockFilter::blockSize +
                                           static_cast<std::size_t>(std::countr_zero(bits)));
            if (best_.isOut(number, {best})) continue;
            best_.offer(number, {nameRank(storage_, number, options_.word)});
        }
    };
    for (std::size_t block = 0; block < blocks; ++block) {
        const std::uint64_t matching = options_.mask.words()[block] & with[block];
        matchCount_ += static_cast<std::uint64_t>(std::popcount(matching));
        const std::uint64_t begins = matching & filter.namesBeginningWith(letter, block);
        left[block] = matching & ~begins;
        offer(block, begins, FindNameRank::wholeName);
    }
    isRemembering_ = false;
    for (std::size_t block = 0; block < blocks && !best_.isOut({FindNameRank::word}); ++block) {
        offer(block, left[block], FindNameRank::word);
    }
}

void PlainSearch::run() {
    const FindNameScan scan(storage_, options_.filter, options_.cancel);
    std::uint32_t first = 0;
    const bool isLetter = options_.filter != nullptr && options_.word.size() == 1 &&
                          options_.filter->namesWith(options_.word.front()) != nullptr;
    if (isLetter) {
        runByLetter();
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
