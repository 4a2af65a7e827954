#include "Rooms/Find/Services/Matching/FindFolderWords.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

using Entry = FindIndexStorage::Entry;

/// Fewer than one in so many entries are asked for their words one by one.
constexpr Entry sparseWords = 64;

bool isHeld(std::string_view name, std::string_view word) {
    return name.find(word) != std::string_view::npos;
}

} // namespace

FindFolderWords::FindFolderWords(const FindIndexStorage& storage, const FindNameScan& names,
                                 const FindQueryNode& node)
    : storage_(storage), names_(names), needsWordInName_(node.needsWordInName) {
    for (const FindQueryNode& child : node.children) {
        const bool isWord = child.kind == FindQueryNode::Kind::text && child.text.mayBeInFolder;
        if (!isWord || std::ranges::find(words_, child.text.folded) != words_.end()) continue;
        words_.push_back(child.text.folded);
    }
    all_ = static_cast<std::uint16_t>((1U << words_.size()) - 1);
    for (const std::string_view component : path::components(storage.rootPath)) {
        rootFolders_.push_back(searchFolded(component));
        for (std::size_t i = 0; i < words_.size(); ++i) {
            if (isHeld(rootFolders_.back(), words_[i])) inRoot_ |= std::uint16_t(1U << i);
        }
    }
}

void FindFolderWords::keepMatching(FindEntrySet& among) {
    if (holders_.empty() && among.size() >= storage_.count() / sparseWords) findHolders();
    if (holders_.empty()) {
        among.keepWhere(
            [&](Entry entry) { return bestPossibleUse(entry) != FindFolderUse::unmet; });
        return;
    }
    for (std::size_t i = 0; i < among.words().size(); ++i) {
        std::uint64_t& word = among.words()[i];
        if (word != 0) word = matchesAt(i, word);
    }
}

void FindFolderWords::findHolders() {
    FindEntrySet all(storage_.count());
    all.addAll();
    holders_.reserve(words_.size());
    for (const std::string_view word : words_) {
        holders_.push_back({.holding = FindEntrySet(storage_.count()),
                            .beginning = FindEntrySet(storage_.count())});
        Holders& into = holders_.back();
        names_.forEachWord(NeedleFinder(std::string(word)), all,
                           [&into](std::size_t at, const NeedleFinder::InNames& names) {
                               into.holding.words()[at] = names.holding;
                               into.beginning.words()[at] = names.beginning;
                           });
    }
}

std::uint64_t FindFolderWords::allInNameAt(std::size_t word) const {
    std::uint64_t all = ~std::uint64_t{0};
    for (const Holders& each : holders_) all &= each.holding.words()[word];
    return all;
}

/// Entries of one folder stand side by side, so the folder is asked once for a run of them.
std::uint64_t FindFolderWords::matchesAt(std::size_t word, std::uint64_t asked) {
    std::uint64_t any = 0;
    for (const Holders& each : holders_) any |= each.holding.words()[word];
    if (needsWordInName_) asked &= any;
    std::uint64_t kept = asked & allInNameAt(word);
    const std::uint32_t* folders = storage_.parent.data() + word * FindEntrySet::wordBits;
    for (std::uint64_t left = asked & ~kept; left != 0;) {
        const auto first = static_cast<unsigned>(std::countr_zero(left));
        const Entry folder = folders[first];
        std::uint64_t run = 0;
        for (std::uint64_t rest = left; rest != 0; rest &= rest - 1) {
            if (folders[std::countr_zero(rest)] != folder) break;
            run |= rest & (~rest + 1);
        }
        left &= ~run;
        const unsigned above = inPath(folder);
        for (std::size_t i = 0; i < holders_.size(); ++i) {
            if ((above >> i & 1U) == 0) run &= holders_[i].holding.words()[word];
        }
        kept |= run;
    }
    return kept;
}

std::array<FindFolderWords::Tier, 4> FindFolderWords::tiers(const FindEntrySet& matches) const {
    using enum FindNameRank;
    const auto tier = [&](FindNameRank rank, FindFolderUse use) {
        return Tier{.best = {rank, use}, .entries = FindEntrySet(storage_.count())};
    };
    std::array<Tier, 4> tiers{tier(wholeName, FindFolderUse::none), tier(word, FindFolderUse::none),
                              tier(wholeName, FindFolderUse::whole),
                              tier(word, FindFolderUse::whole)};
    for (std::size_t i = 0; i < matches.words().size(); ++i) {
        const std::uint64_t found = matches.words()[i];
        if (found == 0) continue;
        std::uint64_t begins = 0;
        for (const Holders& each : holders_) begins |= each.beginning.words()[i];
        const std::uint64_t own = found & allInNameAt(i);
        tiers[0].entries.words()[i] = own & begins;
        tiers[1].entries.words()[i] = own & ~begins;
        tiers[2].entries.words()[i] = found & ~own & begins;
        tiers[3].entries.words()[i] = found & ~own & ~begins;
    }
    return tiers;
}

std::uint16_t FindFolderWords::inName(Entry entry) const {
    unsigned held = 0;
    const std::string_view name = storage_.foldedName(entry);
    for (std::size_t i = 0; i < words_.size(); ++i) {
        const bool isIn =
            holders_.empty() ? isHeld(name, words_[i]) : holders_[i].holding.has(entry);
        held |= unsigned{isIn} << i;
    }
    return static_cast<std::uint16_t>(held);
}

/// Goes up to the first folder that is known already, and back down.
std::uint16_t FindFolderWords::inPath(Entry folder) {
    if (inPaths_.empty()) inPaths_.resize(storage_.count());
    if (inPaths_[folder] != 0) return inPaths_[folder];
    asked_.clear();
    for (; folder != 0 && inPaths_[folder] == 0; folder = storage_.parent[folder]) {
        asked_.push_back(folder);
    }
    std::uint16_t held = folder == 0 ? inRoot_ | isKnown : inPaths_[folder];
    inPaths_[folder] = held;
    for (; !asked_.empty(); asked_.pop_back()) {
        held |= inName(asked_.back());
        inPaths_[asked_.back()] = held;
    }
    return held;
}

FindFolderUse FindFolderWords::bestPossibleUse(Entry entry) {
    const std::uint16_t own = inName(entry);
    if (own == all_) return FindFolderUse::none;
    const bool isMet = ((own | inPath(folderOf(entry))) & all_) == all_;
    return isMet && (own != 0 || !needsWordInName_) ? FindFolderUse::whole : FindFolderUse::unmet;
}

FindFolderUse FindFolderWords::use(Entry entry) {
    const FindFolderUse best = bestPossibleUse(entry);
    if (best != FindFolderUse::whole) return best;
    const std::uint16_t own = inName(entry);
    for (std::size_t i = 0; i < words_.size(); ++i) {
        if ((own >> i & 1U) == 0 && !isWholeName(words_[i], folderOf(entry))) {
            return FindFolderUse::partly;
        }
    }
    return FindFolderUse::whole;
}

bool FindFolderWords::isWholeName(std::string_view word, Entry folder) const {
    for (; folder != 0; folder = storage_.parent[folder]) {
        if (storage_.foldedName(folder) == word) return true;
    }
    return std::ranges::find(rootFolders_, word) != rootFolders_.end();
}

} // namespace tidyro
