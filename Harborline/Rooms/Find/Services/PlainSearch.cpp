#include "Rooms/Find/Services/PlainSearch.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "Rooms/Find/Services/FindNameRank.h"

namespace tidyro {

namespace {

/// Blocks between two looks whether the search was cancelled.
constexpr std::size_t blocksBetweenLooks = 256;

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
      ranksByFinder_(rarestOf(options.words) == 0),
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

void PlainSearch::remember(std::uint32_t entry) {
    if (!remembers_) return;
    if (matches_.size() == options_.mostRemembered) {
        remembers_ = false;
        matches_ = {};
        return;
    }
    matches_.push_back(entry);
}

/// A name that holds the looked-for word, whose entry takes part.
void PlainSearch::take(std::uint32_t entry, bool standsAtBeginning) {
    if (!others_.empty() && !hasOtherWords(entry)) return;
    ++matchCount_;
    remember(entry);
    // In what begins otherwise the word can only stand further on.
    const bool mayBegin = standsAtBeginning || !ranksByFinder_;
    if (best_.isOut(mayBegin ? FindNameRank::wholeName : FindNameRank::word)) return;
    best_.offer(entry, nameRank(storage_, entry, options_.words.front()));
}

void PlainSearch::runOver(std::uint32_t from, std::uint32_t to) {
    const std::uint32_t* starts = storage_.foldedStart.data();
    const std::string_view text(storage_.foldedNames.data(), starts[to]);
    const std::size_t length = finder_.needle().size();
    std::uint32_t entry = from;
    for (std::size_t at = finder_.find(text, starts[from]); at < text.size();) {
        // The entry that the place lies in: mostly one of the next.
        std::uint32_t step = 1;
        while (entry + step < to && starts[entry + step] <= at) {
            entry += step;
            step *= 2;
        }
        entry = static_cast<std::uint32_t>(
            std::upper_bound(starts + entry, starts + std::min(entry + step, to) + 1, at) - starts -
            1);
        const std::size_t end = starts[entry + 1];
        if (at + length > end) {
            at = finder_.find(text, at + 1); // over the end of the name
            continue;
        }
        if (options_.mask.has(entry)) take(entry, at == starts[entry]);
        at = finder_.find(text, end);
    }
}

/// One letter stands in most names: they are counted by the filter's bits, and only those that
/// begin with it are looked at when they alone are more than the best. False when that is not so.
bool PlainSearch::runByLetter() {
    const FindBlockFilter& filter = *options_.filter;
    const char letter = finder_.needle().front();
    const std::uint64_t* with = filter.namesWith(letter);
    if (with == nullptr) return false;
    const std::size_t blocks = filter.covered() / FindBlockFilter::blockSize;
    const char* firstBytes = filter.firstBytes();
    std::size_t beginning = 0;
    for (std::size_t i = 0; i < filter.covered(); ++i) beginning += firstBytes[i] == letter ? 1 : 0;
    if (beginning < options_.limit) return false;
    for (std::size_t block = 0; block < blocks; ++block) {
        const std::uint64_t matching = with[block] & options_.mask.bits[block];
        if (matching == 0) continue;
        matchCount_ += static_cast<std::uint64_t>(std::popcount(matching));
        const std::size_t first = block * FindBlockFilter::blockSize;
        for (std::uint64_t left = matching; left != 0; left &= left - 1) {
            const std::size_t entry = first + static_cast<std::size_t>(std::countr_zero(left));
            if (firstBytes[entry] != letter) continue;
            const auto number = static_cast<std::uint32_t>(entry);
            best_.offer(number, nameRank(storage_, number, finder_.needle()));
        }
    }
    remembers_ = false;
    return best_.isOut(FindNameRank::word);
}

void PlainSearch::run() {
    const std::uint32_t count = storage_.count();
    std::uint32_t from = 0;
    if (options_.filter != nullptr) {
        const FindBlockFilter& filter = *options_.filter;
        from = filter.covered();
        if (finder_.needle().size() == 1 && others_.empty() && runByLetter()) {
            runOver(from, count);
            return;
        }
        matchCount_ = 0;
        best_ = BestHits(storage_, options_.limit);
        remembers_ = true;
        const FindBlockFilter::Question question(filter, finder_.needle());
        const std::size_t blocks = from / FindBlockFilter::blockSize;
        for (std::size_t block = 0; block < blocks;) {
            if (block % blocksBetweenLooks == 0 && options_.cancel.stop_requested()) {
                wasCancelled_ = true;
                return;
            }
            // Blocks side by side are gone through in one go.
            std::size_t end = block;
            const std::size_t furthest = std::min(blocks, (block | (blocksBetweenLooks - 1)) + 1);
            while (end < furthest && question.mayHold(end)) ++end;
            if (end > block) {
                runOver(static_cast<std::uint32_t>(block * FindBlockFilter::blockSize),
                        static_cast<std::uint32_t>(end * FindBlockFilter::blockSize));
            }
            block = std::max(end, block + 1);
        }
    }
    constexpr std::uint32_t atOnce = blocksBetweenLooks * FindBlockFilter::blockSize;
    for (; from < count; from += std::min(atOnce, count - from)) {
        if (options_.cancel.stop_requested()) {
            wasCancelled_ = true;
            return;
        }
        runOver(from, std::min(count, from + atOnce));
    }
}

void PlainSearch::runOver(std::span<const std::uint32_t> entries) {
    for (const std::uint32_t entry : entries) {
        if (!options_.mask.has(entry)) continue;
        const std::string_view name = storage_.foldedName(entry);
        const std::size_t at = finder_.find(name, 0);
        if (at < name.size()) take(entry, at == 0);
    }
}

} // namespace tidyro
