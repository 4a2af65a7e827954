#include "Rooms/Find/Services/Search/PlainSearch.h"

#include <bit>

#include "Rooms/Find/Services/Matching/FindNameRank.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"

namespace tidyro {

PlainSearch::PlainSearch(const Options& options)
    : options_(options),
      storage_(options.storage),
      finder_(std::string(options.word)),
      best_(options.storage, options.limit, options.workingFolder) {}

void PlainSearch::remember(std::size_t word, std::uint64_t entries) {
    if (!isRemembering_) return;
    if (matchCount_ > options_.maxRemembered) {
        isRemembering_ = false;
        matches_ = {};
        return;
    }
    for (; entries != 0; entries &= entries - 1) {
        matches_.push_back(static_cast<std::uint32_t>(
            word * FindEntrySet::wordBits + static_cast<std::size_t>(std::countr_zero(entries))));
    }
}

/// The names are in memory by the time that they are ranked.
void PlainSearch::offer(std::size_t word, std::uint64_t entries, FindNameRank best) {
    const bool mayBegin = best == FindNameRank::wholeName;
    const std::size_t bytes = options_.word.size();
    for (; entries != 0; entries &= entries - 1) {
        const auto entry = static_cast<std::uint32_t>(
            word * FindEntrySet::wordBits + static_cast<std::size_t>(std::countr_zero(entries)));
        if (best_.isOut(entry, {best})) continue;
        if (mayBegin && best_.isOut(entry, {bestRankOfBeginning(storage_, entry, bytes)})) continue;
        __builtin_prefetch(storage_.foldedNames.data() + storage_.foldedStart[entry]);
        awaited_[awaitedCount_++] = entry;
        if (awaitedCount_ == awaited_.size()) rankAwaited();
    }
}

void PlainSearch::rankAwaited() {
    for (std::size_t i = 0; i < awaitedCount_; ++i) {
        best_.offer(awaited_[i], {nameRank(storage_, awaited_[i], options_.word)});
    }
    awaitedCount_ = 0;
}

/// Names that begin with the word are offered at once: they rank best and make the others drop out
/// early.
void PlainSearch::take(std::size_t word, const InNames& found) {
    matchCount_ += static_cast<std::uint64_t>(std::popcount(found.holding));
    remember(word, found.holding);
    left_[word] = found.holding & ~found.beginning;
    offer(word, found.beginning, FindNameRank::wholeName);
}

void PlainSearch::run() {
    left_.resize(options_.mask.words().size());
    const FindNameScan scan(storage_, options_.filter, options_.cancel);
    wasCancelled_ =
        !scan.forEachWord(finder_, options_.mask,
                          [this](std::size_t word, const InNames& found) { take(word, found); });
    rankAwaited();
    for (std::size_t i = 0; i < left_.size() && !best_.isOut({FindNameRank::word}); ++i) {
        offer(i, left_[i], FindNameRank::word);
    }
    rankAwaited();
}

void PlainSearch::runOver(std::span<const std::uint32_t> entries) {
    for (const std::uint32_t entry : entries) {
        const std::size_t at = storage_.foldedName(entry).find(options_.word);
        if (at == std::string_view::npos || !options_.mask.has(entry)) continue;
        ++matchCount_;
        matches_.push_back(entry);
        const bool mayBegin = at <= 1; // behind a dot
        if (best_.isOut(entry, {mayBegin ? FindNameRank::wholeName : FindNameRank::word})) continue;
        best_.offer(entry, {nameRank(storage_, entry, options_.word)});
    }
}

} // namespace tidyro
