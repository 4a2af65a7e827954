#include "Rooms/Find/Services/Matching/FindFolderWords.h"

#include <algorithm>
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
    if (holders_.empty() && among.size() >= storage_.count() / sparseWords) {
        for (const std::string_view word : words_) holders_.push_back(names_.holding(word));
        if (needsWordInName_) {
            FindEntrySet any = holders_.front();
            for (const FindEntrySet& holder : holders_) any.add(holder);
            among.keepThoseIn(any);
        }
    }
    among.keepWhere([&](Entry entry) {
        const std::uint16_t own = inName(entry);
        if (own == all_) return true;
        if (own == 0 && needsWordInName_) return false;
        return ((own | inPath(storage_.parent[entry])) & all_) == all_;
    });
}

std::uint16_t FindFolderWords::inName(Entry entry) const {
    unsigned held = 0;
    if (!holders_.empty()) {
        for (std::size_t i = 0; i < holders_.size(); ++i)
            held |= unsigned{holders_[i].has(entry)} << i;
    } else {
        const std::string_view name = storage_.foldedName(entry);
        for (std::size_t i = 0; i < words_.size(); ++i)
            held |= unsigned{isHeld(name, words_[i])} << i;
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
    const bool isMet = ((own | inPath(storage_.parent[entry])) & all_) == all_;
    return isMet && (own != 0 || !needsWordInName_) ? FindFolderUse::whole : FindFolderUse::unmet;
}

FindFolderUse FindFolderWords::use(Entry entry) {
    const FindFolderUse best = bestPossibleUse(entry);
    if (best != FindFolderUse::whole) return best;
    const std::uint16_t own = inName(entry);
    for (std::size_t i = 0; i < words_.size(); ++i) {
        if ((own >> i & 1U) == 0 && !isWholeName(words_[i], storage_.parent[entry])) {
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
