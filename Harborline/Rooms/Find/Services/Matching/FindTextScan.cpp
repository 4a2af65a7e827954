#include "Rooms/Find/Services/Matching/FindTextScan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Rooms/Find/Services/Matching/FindPathScan.h"
#include "Rooms/Find/Services/Query/FindRegex.h"

namespace tidyro {

namespace {

/// Fewer than one in so many entries are looked at one by one faster than all names are searched.
constexpr FindIndexStorage::Entry sparse = 64;

/// What stands between the wildcards of a pattern: the longest of it, and some more of two bytes or
/// more, each of which rules out further names.
std::vector<std::string_view> literalsOf(std::string_view pattern, bool hasSets) {
    constexpr std::size_t maxLiterals = 4;
    std::vector<std::string_view> literals;
    while (!pattern.empty()) {
        std::size_t end = 0;
        std::size_t set = 0;
        while (end < pattern.size() && pattern[end] != '*' && pattern[end] != '?') {
            set = hasSets ? globSetEnd(pattern, end) : 0;
            if (set != 0) break;
            ++end;
        }
        if (end > 0) literals.push_back(pattern.substr(0, end));
        pattern.remove_prefix(set != 0 ? set : std::min(end + 1, pattern.size()));
    }
    std::ranges::sort(literals, [](std::string_view a, std::string_view b) {
        return a.size() != b.size() ? a.size() > b.size() : a < b;
    });
    while (literals.size() > 1 && (literals.back().size() < 2 || literals.size() > maxLiterals)) {
        literals.pop_back();
    }
    return literals;
}

} // namespace

void FindTextScan::keepMatching(FindEntrySet& among, const FindTextTerm& term) {
    const bool isSparse = among.size() < storage_.count() / sparse;
    if (term.mode == FindTextMode::regex) {
        if (!isSparse) keepLiterals(among, term);
        keepByExpression(among, term);
        return;
    }
    FindTextTest test(term, storage_.rootPath);
    if (!isSparse) {
        keepHoldingLiterals(among, term, test);
        // Then that is all there is to ask.
        if (term.mode == FindTextMode::contains && (term.isInPath || !term.isCaseSensitive)) return;
    }
    among.keepWhere([&](FindIndexStorage::Entry entry) {
        if (cancel_.stop_requested()) return false;
        return test.isMetBy(term.isInPath ? subjects_.path(entry) : subjects_.name(entry));
    });
}

void FindTextScan::keepHoldingLiterals(FindEntrySet& among, const FindTextTerm& term,
                                       const FindTextTest& test) const {
    if (term.mode != FindTextMode::glob) {
        among.keepThoseIn(holding(test.needle(), term, test));
        return;
    }
    for (const std::string_view literal : literalsOf(test.needle(), term.hasSets)) {
        among.keepThoseIn(holding(literal, term, test));
    }
}

/// The entries that may hold a literal where the term looks; exactly those that do, for a text that
/// may stand anywhere in a folded name or in any path.
FindEntrySet FindTextScan::holding(std::string_view literal, const FindTextTerm& term,
                                   const FindTextTest& test) const {
    if (term.isInPath) {
        const bool isFromRoot = test.isAtBeginning() && term.mode == FindTextMode::contains;
        return FindPathScan(storage_, names_,
                            {.isFromRoot = isFromRoot, .isCaseSensitive = term.isCaseSensitive})
            .holding(literal);
    }
    return term.isCaseSensitive ? names_.candidatesForOwn(literal) : names_.holding(literal);
}

/// What the literals of a regular expression rule out goes.
void FindTextScan::keepLiterals(FindEntrySet& among, const FindTextTerm& term) const {
    const auto literals = term.regex->literals();
    if (literals.empty()) return;
    std::vector<FindEntrySet> holders;
    holders.reserve(literals.size());
    FindEntrySet any(storage_.count());
    for (const std::string& literal : literals) {
        holders.push_back(term.isInPath ? FindPathScan(storage_, names_, {}).holding(literal)
                                        : names_.holding(literal));
        any.add(holders.back());
    }
    if (!term.regex->mayMatch(0)) among.keepThoseIn(any);
    bool isAnyEnough = true;
    for (std::size_t i = 0; i < literals.size(); ++i) {
        isAnyEnough = isAnyEnough && term.regex->mayMatch(std::uint32_t{1} << i);
    }
    if (isAnyEnough) return;
    // Which literals there are tells all, so that it is asked once of each selection.
    std::array<std::optional<bool>, std::size_t{1} << FindRegex::maxLiterals> answers;
    among.keepWhere([&](FindIndexStorage::Entry entry) {
        std::uint32_t held = 0;
        for (std::size_t i = 0; i < holders.size(); ++i) {
            held |= std::uint32_t{holders[i].has(entry)} << i;
        }
        std::optional<bool>& answer = answers[held];
        if (!answer) answer = term.regex->mayMatch(held);
        return *answer;
    });
}

void FindTextScan::keepByExpression(FindEntrySet& among, const FindTextTerm& term) {
    if (term.isInPath) {
        among.keepWhere([&](FindIndexStorage::Entry entry) {
            if (cancel_.stop_requested()) return false;
            return term.regex->isIn(subjects_.path(entry).own.substr(1));
        });
        return;
    }
    FindRegexRun run(*term.regex);
    std::array<std::string_view, FindRegexRun::maxTexts> names;
    static_assert(FindRegexRun::maxTexts >= FindEntrySet::wordBits);
    for (std::size_t i = 0; i < among.words().size(); ++i) {
        std::uint64_t& word = among.words()[i];
        if (word == 0) continue;
        if (cancel_.stop_requested()) return;
        std::array<unsigned, FindEntrySet::wordBits> bits{};
        std::size_t count = 0;
        for (std::uint64_t left = word; left != 0; left &= left - 1) {
            bits[count] = static_cast<unsigned>(std::countr_zero(left));
            names[count] = storage_.name(
                static_cast<FindIndexStorage::Entry>(i * FindEntrySet::wordBits + bits[count]));
            ++count;
        }
        const std::uint64_t matching = run.matching(std::span(names).first(count));
        word = 0;
        for (std::size_t at = 0; at < count; ++at) {
            word |= (matching >> at & 1U) << bits[at];
        }
    }
}

} // namespace tidyro
