#include "Rooms/Find/Services/Matching/FindQueryMatcher.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindFolderSet.h"
#include "Rooms/Find/Services/Matching/FindFolderWords.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"
#include "Rooms/Find/Services/Matching/FindTextScan.h"

namespace tidyro {

namespace {

using Kind = FindQueryNode::Kind;
using Entry = FindIndexStorage::Entry;

/// The text that names are ranked by; empty for a node that has none. It stands for itself: what
/// has wildcards fits every match alike. It is a text in names, or the last component of one in
/// paths.
std::string_view rankingText(const FindQueryNode& node, bool isInPath) {
    const FindTextTerm& term = node.text;
    const bool isPlain = node.kind == Kind::text && term.mode != FindTextMode::glob &&
                         term.mode != FindTextMode::regex;
    if (!isPlain || term.isInPath != isInPath) return {};
    std::string_view text = term.folded;
    if (!isInPath) return text;
    while (text.ends_with('/')) text.remove_suffix(1);
    return text.substr(text.rfind('/') + 1); // the whole of it when there is none
}

void collectRankingTexts(const FindQueryNode& node, bool isInPath,
                         std::vector<std::string_view>& texts) {
    const std::string_view text = rankingText(node, isInPath);
    if (!text.empty()) texts.push_back(text);
    if (node.kind != Kind::all && node.kind != Kind::any) return;
    for (const FindQueryNode& child : node.children) collectRankingTexts(child, isInPath, texts);
}

bool mayBeInFolder(const FindQueryNode& node) {
    return node.kind == Kind::text && node.text.mayBeInFolder;
}

bool hasExtension(std::string_view name, const std::vector<std::string>& extensions) {
    for (std::size_t stop = name.find('.', 1); stop != std::string_view::npos;
         stop = name.find('.', stop + 1)) {
        if (std::ranges::binary_search(extensions, name.substr(stop + 1), std::less<>())) {
            return true;
        }
    }
    return false;
}

/// How much it costs to find out about an entry, from a look at one number to running an
/// expression.
enum class Cost : std::uint8_t { number, name, words, folders, path, expression };

Cost costOf(const FindQueryNode& node) {
    switch (node.kind) {
    case Kind::kind:
    case Kind::size:
    case Kind::date:
    case Kind::depth:
    case Kind::hidden:
    case Kind::system: return Cost::number;
    case Kind::ext:
    case Kind::empty: return Cost::name;
    case Kind::folder:
    case Kind::parent: return Cost::folders;
    case Kind::text:
        if (node.text.mode == FindTextMode::regex) return Cost::expression;
        return node.text.isInPath ? Cost::path : Cost::name;
    case Kind::all:
    case Kind::any:
    case Kind::none: break;
    }
    Cost highest = Cost::number;
    for (const FindQueryNode& child : node.children) highest = std::max(highest, costOf(child));
    return highest;
}

} // namespace

struct FindQueryMatcher::Body {
    Body(const FindIndexStorage& index, const FindQuery& query, const FindBlockFilter* filter,
         CancelToken token)
        : storage(index),
          root(query.root),
          cancel(std::move(token)),
          names(index, filter, cancel),
          texts(index, names, cancel) {
        collectRankingTexts(root, isRankedByPaths, ranking);
        if (ranking.empty()) {
            isRankedByPaths = true;
            collectRankingTexts(root, isRankedByPaths, ranking);
        }
        for (const std::string_view text : ranking) {
            longestText = std::max(longestText, text.size());
        }
        collectFolderWords(root);
    }

    const FindIndexStorage& storage;
    const FindQueryNode& root;
    CancelToken cancel;
    FindNameScan names;
    FindTextScan texts;
    bool isRankedByPaths = false; ///< because there is no text in names

    std::vector<std::string_view> ranking; ///< all texts that names are ranked by
    std::size_t longestText = 0;
    bool areTiersExact = false; ///< they tell which names begin with a text
    std::map<const FindQueryNode*, FindFolderWords> folderWords;

    void collectFolderWords(const FindQueryNode& node) {
        if (std::ranges::any_of(node.children, mayBeInFolder)) {
            folderWords.try_emplace(&node, storage, names, node);
        }
        for (const FindQueryNode& child : node.children) collectFolderWords(child);
    }

    void keepMatching(FindEntrySet& among, const FindQueryNode& node) {
        if (cancel.stop_requested()) return;
        switch (node.kind) {
        case Kind::all: return keepAll(among, node);
        case Kind::any: return keepAny(among, node);
        case Kind::none: {
            FindEntrySet denied = among;
            keepMatching(denied, node.children.front());
            return among.remove(denied);
        }
        case Kind::text: return texts.keepMatching(among, node.text);
        case Kind::ext: return keepWithExtension(among, node);
        case Kind::kind: return among.keepWhere([&](Entry entry) { return isOfKind(node, entry); });
        case Kind::size:
            return keepBetween(among, node, [&](Entry entry) { return storage.size(entry); });
        case Kind::date:
            return keepBetween(among, node, [&](Entry entry) { return storage.mtime[entry]; });
        case Kind::depth:
            return keepBetween(among, node, [&](Entry entry) { return storage.depth[entry]; });
        case Kind::empty: return among.keepWhere([&](Entry entry) { return isEmpty(entry); });
        case Kind::hidden: return keepFlagged(among, findflag::hidden);
        case Kind::system: return keepFlagged(among, findflag::system);
        case Kind::folder:
        case Kind::parent: {
            FindFolderSet folders(storage, node.names.front());
            if (node.kind == Kind::folder) folders.addContents();
            return among.keepWhere([&](Entry entry) { return folders.has(storage.parent[entry]); });
        }
        }
    }

    void keepAll(FindEntrySet& among, const FindQueryNode& node) {
        std::vector<std::pair<Cost, std::size_t>> order;
        order.reserve(node.children.size());
        const std::size_t words = node.children.size(); // those that may be in folders, together
        for (std::size_t i = 0; i < node.children.size(); ++i) {
            if (!mayBeInFolder(node.children[i])) order.emplace_back(costOf(node.children[i]), i);
        }
        const auto inFolders = folderWords.find(&node);
        if (inFolders != folderWords.end()) order.emplace_back(Cost::words, words);
        std::ranges::sort(order);
        for (const auto& [cost, place] : order) {
            if (among.isEmpty()) return;
            if (place == words) {
                inFolders->second.keepMatching(among);
            } else {
                keepMatching(among, node.children[place]);
            }
        }
    }

    void keepAny(FindEntrySet& among, const FindQueryNode& node) {
        FindEntrySet left = std::move(among);
        among = FindEntrySet(storage.count());
        for (const FindQueryNode& child : node.children) {
            if (left.isEmpty() || cancel.stop_requested()) return;
            FindEntrySet matching = left;
            keepMatching(matching, child);
            among.add(matching);
            left.remove(matching);
        }
    }

    template <class Number>
    static void keepBetween(FindEntrySet& among, const FindQueryNode& node, const Number& number) {
        among.keepWhere([&](Entry entry) {
            const std::uint64_t value = number(entry);
            return value >= node.min && value <= node.max;
        });
    }

    void keepFlagged(FindEntrySet& among, std::uint8_t flag) const {
        among.keepWhere([&](Entry entry) { return storage.is(entry, flag); });
    }

    void keepWithExtension(FindEntrySet& among, const FindQueryNode& node) const {
        // Looking for each in all names costs as much as looking at each name once for all.
        constexpr std::size_t few = 8;
        if (node.names.size() <= few) {
            FindEntrySet candidates(storage.count());
            for (const std::string& name : node.names) candidates.add(names.holding("." + name));
            among.keepThoseIn(candidates);
        }
        among.keepWhere(
            [&](Entry entry) { return hasExtension(storage.foldedName(entry), node.names); });
    }

    /// Nothing for a node that names are not ranked by.
    [[nodiscard]] std::optional<FindFit> fit(const FindQueryNode& node, Entry entry) {
        if (node.kind == Kind::text) {
            const std::string_view text = rankingText(node, isRankedByPaths);
            if (text.empty()) return std::nullopt;
            return FindFit{.rank = nameRank(storage, entry, text)};
        }
        if (node.kind != Kind::all && node.kind != Kind::any) return std::nullopt;
        const auto words = folderWords.find(&node);
        const auto use =
            words == folderWords.end() ? FindFolderUse::none : words->second.use(entry);
        const bool isFirstEnough = node.kind == Kind::all && use == FindFolderUse::none;
        std::optional<FindFit> best;
        for (const FindQueryNode& child : node.children) {
            const std::optional<FindFit> one = fit(child, entry);
            if (one && (!best || one->isBetter(*best))) best = one;
            if (best && isFirstEnough) break;
        }
        if (best) best->folders = std::max(best->folders, use);
        return best;
    }

    [[nodiscard]] bool isEmpty(Entry entry) const {
        if (!storage.is(entry, findflag::folder)) return storage.size(entry) == 0;
        if (storage.is(entry, findflag::unread)) return false;
        bool isFilled = false;
        storage.visitChildren(entry, [&](Entry child) {
            isFilled = !storage.is(child, findflag::deleted);
            return !isFilled;
        });
        return !isFilled;
    }

    [[nodiscard]] bool isOfKind(const FindQueryNode& node, Entry entry) const {
        const bool isFolder = storage.is(entry, findflag::folder);
        if (isFolder ? node.mayBeFolder : node.mayBeFile) return true;
        return std::ranges::find(node.categories, storage.category(entry)) != node.categories.end();
    }
};

FindQueryMatcher::FindQueryMatcher(const FindIndexStorage& storage, const FindQuery& query,
                                   const FindBlockFilter* filter, CancelToken cancel)
    : body_(std::make_unique<Body>(storage, query, filter, std::move(cancel))) {}

FindQueryMatcher::~FindQueryMatcher() = default;

FindEntrySet FindQueryMatcher::matches(FindEntrySet among) const {
    body_->keepMatching(among, body_->root);
    return among;
}

std::vector<FindFolderWords::Tier> FindQueryMatcher::tiers(FindEntrySet matches) const {
    std::vector<FindFolderWords::Tier> tiers;
    const auto words = body_->folderWords.find(&body_->root);
    const bool areAllOfIt = words != body_->folderWords.end() && words->second.knowsHolders() &&
                            body_->ranking.size() == words->second.words().size();
    body_->areTiersExact = areAllOfIt;
    if (areAllOfIt) {
        auto four = words->second.tiers(matches);
        tiers.assign(std::make_move_iterator(four.begin()), std::make_move_iterator(four.end()));
    } else {
        tiers.push_back({.best = {FindNameRank::wholeName}, .entries = std::move(matches)});
    }
    return tiers;
}

FindFit FindQueryMatcher::fit(std::uint32_t entry) const {
    return body_->fit(body_->root, entry).value_or(FindFit());
}

FindFit FindQueryMatcher::bestPossibleFit(std::uint32_t entry, FindFit best) const {
    const auto& texts = body_->ranking;
    if (texts.empty() || best.rank > FindNameRank::wholeName)
        return texts.empty() ? FindFit() : best;
    const FindNameRank rank = bestRankOfBeginning(body_->storage, entry, body_->longestText);
    if (body_->areTiersExact) return {.rank = rank, .folders = best.folders};
    const std::string_view name = body_->storage.foldedName(entry);
    const std::string_view shown = name.substr(name.starts_with('.') ? 1 : 0);
    const bool mayBegin = std::ranges::any_of(texts, [&](std::string_view text) {
        return name.starts_with(text) || shown.starts_with(text);
    });
    const auto words = body_->folderWords.find(&body_->root);
    return {.rank = mayBegin ? rank : FindNameRank::word,
            .folders = words == body_->folderWords.end() ? FindFolderUse::none
                                                         : words->second.bestPossibleUse(entry)};
}

} // namespace tidyro
