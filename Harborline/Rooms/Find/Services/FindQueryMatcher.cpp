#include "Rooms/Find/Services/FindQueryMatcher.h"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Rooms/Find/Services/FindFolderSet.h"
#include "Rooms/Find/Services/FindNameRank.h"
#include "Rooms/Find/Services/FindPathText.h"
#include "Rooms/Find/Services/FindTextTest.h"

namespace tidyro {

namespace {

using Kind = FindQueryNode::Kind;

/// A node and what its condition needs of the index.
struct Condition {
    const FindQueryNode* node;
    std::vector<Condition> children = {};
    std::unique_ptr<FindTextTest> text = nullptr;
    std::unique_ptr<FindFolderSet> folders = nullptr;
};

Condition prepared(const FindIndexStorage& storage, const FindQueryNode& node) {
    Condition condition{.node = &node};
    condition.children.reserve(node.children.size());
    for (const auto& child : node.children) condition.children.push_back(prepared(storage, child));
    if (node.kind == Kind::text) {
        condition.text = std::make_unique<FindTextTest>(node.text, storage.rootPath);
    }
    if (node.kind == Kind::folder || node.kind == Kind::parent) {
        condition.folders = std::make_unique<FindFolderSet>(storage, node.names.front());
        if (node.kind == Kind::folder) condition.folders->addContents();
    }
    return condition;
}

/// Which entries are deleted or in something deleted.
std::vector<bool> goneEntries(const FindIndexStorage& storage) {
    if (storage.deletedCount == 0) return {};
    std::vector<bool> gone(storage.count());
    for (std::uint32_t entry = 0; entry < storage.count(); ++entry) {
        const std::uint32_t folder = storage.parent[entry];
        gone[entry] = storage.is(entry, findflag::deleted) ||
                      (folder != FindIndexStorage::none && gone[folder]);
    }
    return gone;
}

std::vector<bool> foldersWithEntries(const FindIndexStorage& storage) {
    std::vector<bool> filled(storage.count());
    for (std::uint32_t entry = 1; entry < storage.count(); ++entry) {
        if (!storage.is(entry, findflag::deleted)) filled[storage.parent[entry]] = true;
    }
    return filled;
}

bool asksFor(const FindQueryNode& node, Kind kind) {
    return node.kind == kind || std::ranges::any_of(node.children, [kind](const auto& child) {
               return asksFor(child, kind);
           });
}

/// What names are ranked by: the first text that stands for itself, of alternatives each one's.
void collectRanking(const FindQueryNode& node, std::vector<std::string_view>& texts) {
    switch (node.kind) {
    case Kind::text: {
        const FindTextTerm& term = node.text;
        const bool isPlain = term.mode != FindTextMode::glob && term.mode != FindTextMode::regex;
        if (isPlain && !term.inPath && !term.folded.empty()) texts.push_back(term.folded);
        break;
    }
    case Kind::all:
        for (std::size_t i = 0; i < node.children.size() && texts.empty(); ++i) {
            collectRanking(node.children[i], texts);
        }
        break;
    case Kind::any:
        for (const FindQueryNode& child : node.children) {
            std::vector<std::string_view> own;
            collectRanking(child, own);
            texts.insert(texts.end(), own.begin(), own.end());
        }
        break;
    default: break;
    }
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

} // namespace

struct FindQueryMatcher::Body {
    const FindIndexStorage& storage;
    Condition root;
    FindPathText paths;
    std::vector<bool> gone;   ///< empty: nothing is
    std::vector<bool> filled; ///< empty: nobody asks
    std::vector<std::string_view> ranking;

    bool holds(Condition& condition, std::uint32_t entry) {
        const FindQueryNode& node = *condition.node;
        const auto isBetween = [&node](std::uint64_t value) {
            return value >= node.least && value <= node.most;
        };
        switch (node.kind) {
        case Kind::all:
            return std::ranges::all_of(condition.children,
                                       [&](Condition& child) { return holds(child, entry); });
        case Kind::any:
            return std::ranges::any_of(condition.children,
                                       [&](Condition& child) { return holds(child, entry); });
        case Kind::none: return !holds(condition.children.front(), entry);
        case Kind::text: return condition.text->holds(subject(node.text, entry));
        case Kind::ext: return hasExtension(storage.foldedName(entry), node.names);
        case Kind::kind: return isOfKind(node, entry);
        case Kind::size: return isBetween(storage.size(entry));
        case Kind::date: return isBetween(storage.mtime[entry]);
        case Kind::depth: return isBetween(storage.depth[entry]);
        case Kind::empty:
            return storage.is(entry, findflag::directory) ? !filled[entry]
                                                          : storage.size(entry) == 0;
        case Kind::hidden: return storage.is(entry, findflag::hidden);
        case Kind::system: return storage.is(entry, findflag::system);
        case Kind::folder:
        case Kind::parent: return condition.folders->has(storage.parent[entry]);
        }
        return false;
    }

    [[nodiscard]] FindSubject subject(const FindTextTerm& term, std::uint32_t entry) {
        if (term.inPath) return paths.subject(entry);
        return {.own = storage.name(entry),
                .folded = storage.foldedName(entry),
                .isASCII = !storage.is(entry, findflag::notASCII)};
    }

    [[nodiscard]] bool isOfKind(const FindQueryNode& node, std::uint32_t entry) const {
        const bool isFolder = storage.is(entry, findflag::directory);
        if (isFolder ? node.takesFolders : node.takesFiles) return true;
        return std::ranges::find(node.categories, storage.category(entry)) != node.categories.end();
    }
};

FindQueryMatcher::FindQueryMatcher(const FindIndexStorage& storage, const FindQuery& query)
    : body_(new Body{.storage = storage,
                     .root = prepared(storage, query.root),
                     .paths = FindPathText(storage),
                     .gone = goneEntries(storage),
                     .filled = {},
                     .ranking = {}}) {
    if (asksFor(query.root, Kind::empty)) body_->filled = foldersWithEntries(storage);
    collectRanking(query.root, body_->ranking);
}

FindQueryMatcher::~FindQueryMatcher() = default;

bool FindQueryMatcher::matches(std::uint32_t entry) {
    if (entry == 0 || (!body_->gone.empty() && body_->gone[entry])) return false;
    return body_->holds(body_->root, entry);
}

unsigned FindQueryMatcher::rank(std::uint32_t entry) const {
    auto best = FindNameRank::anywhere;
    for (const std::string_view text : body_->ranking) {
        best = std::min(best, nameRank(body_->storage, entry, text));
    }
    return static_cast<unsigned>(best);
}

} // namespace tidyro
