#include "Rooms/Find/Services/Search/NaiveFind.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include <re2/re2.h>

#include "Base/UnicodeText.h"

namespace tidyro::testing {

namespace {

using Kind = FindQueryNode::Kind;

std::vector<std::string> foldedComponents(std::string_view path) {
    std::vector<std::string> components;
    std::string component;
    for (const char byte : std::string(path) + "/") {
        if (byte != '/') {
            component += byte;
            continue;
        }
        if (!component.empty() && component != ".") components.push_back(searchFolded(component));
        component.clear();
    }
    return components;
}

bool endsWith(const std::vector<std::string>& path, const std::vector<std::string>& end) {
    return path.size() >= end.size() && std::equal(end.rbegin(), end.rend(), path.rbegin());
}

std::string extensionOf(const std::string& name) {
    const std::size_t stop = name.rfind('.');
    return stop == std::string::npos || stop == 0 ? "" : name.substr(stop + 1);
}

bool isASCII(const std::string& text) {
    return std::ranges::all_of(text, [](unsigned char byte) { return byte < 0x80; });
}

/// 0 for the best; see `FindNameRank`.
unsigned rankOf(std::string own, std::string folded, const std::string& needle) {
    const auto isLetterOrDigit = [](unsigned char byte) {
        return byte >= 0x80 || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
    };
    const auto isSmall = [](char byte) { return byte >= 'a' && byte <= 'z'; };
    const auto isCapital = [](char byte) { return byte >= 'A' && byte <= 'Z'; };
    if (folded.starts_with('.') && !needle.starts_with('.')) {
        folded.erase(0, 1);
        own.erase(0, 1);
    }
    if (folded == needle) return 0;
    const std::string extension = extensionOf(folded);
    if (!extension.empty() && folded == needle + "." + extension) return 1;
    if (folded.starts_with(needle)) return 2;
    for (std::size_t at = 1; at < folded.size(); ++at) {
        if (folded.compare(at, needle.size(), needle) != 0) continue;
        if (!isLetterOrDigit(static_cast<unsigned char>(folded[at - 1]))) return 3;
        if (isASCII(own) && isSmall(own[at - 1]) && isCapital(own[at])) return 3;
    }
    return 4;
}

/// The text that a node is ranked by, if it is ranked by names or paths; else empty.
std::string rankingText(const FindQueryNode& node, bool byPath) {
    const FindTextTerm& term = node.text;
    const bool isPlain = node.kind == Kind::text && term.mode != FindTextMode::glob &&
                         term.mode != FindTextMode::regex && term.isInPath == byPath;
    if (!isPlain) return "";
    if (!byPath) return term.folded;
    std::string last;
    std::string component;
    for (const char byte : term.folded + "/") {
        if (byte != '/') component += byte;
        if (byte != '/' || component.empty()) continue;
        last = component;
        component.clear();
    }
    return last;
}

bool hasRankingName(const FindQueryNode& node) {
    if (node.kind == Kind::all || node.kind == Kind::any) {
        return std::ranges::any_of(node.children, hasRankingName);
    }
    return !rankingText(node, false).empty();
}

bool mayBeInFolder(const FindQueryNode& node) {
    return node.kind == Kind::text && node.text.mayBeInFolder;
}

} // namespace

/// One query, asked of one entry after another.
struct NaiveFind::Search {
    const NaiveFind& in;
    const FindIndexStorage& storage;
    bool byPath = false; ///< nothing else to rank by
    std::map<const FindQueryNode*, std::unique_ptr<RE2>> expressions = {};
    std::map<const FindQueryNode*, std::vector<std::string>> folders = {};

    bool holds(const FindQueryNode& node, std::uint32_t entry) {
        const Thing& thing = in.things_[entry];
        const bool isFolder = storage.is(entry, findflag::folder);
        const auto isBetween = [&node](std::uint64_t value) {
            return node.min <= value && value <= node.max;
        };
        const auto holdsToo = [&](const FindQueryNode& child) { return holds(child, entry); };
        switch (node.kind) {
        case Kind::all:
            return std::ranges::all_of(node.children, holdsToo) && hasWordInName(node, entry);
        case Kind::any: return std::ranges::any_of(node.children, holdsToo);
        case Kind::none: return !holds(node.children.at(0), entry);
        case Kind::text:
            return textHolds(node, thing) ||
                   (mayBeInFolder(node) && isInFolder(node, entry, false));
        case Kind::ext:
            return std::ranges::any_of(node.names, [&](const std::string& extension) {
                const std::string& name = thing.name.folded;
                return name.ends_with("." + extension) && name.size() > extension.size() + 1;
            });
        case Kind::kind:
            return (isFolder ? node.mayBeFolder : node.mayBeFile) ||
                   std::ranges::count(node.categories, storage.category(entry)) > 0;
        case Kind::size: return isBetween(storage.size(entry));
        case Kind::date: return isBetween(storage.mtime[entry]);
        case Kind::depth: return isBetween(std::min<std::size_t>(thing.above.size(), 255));
        case Kind::empty:
            return isFolder ? !thing.isFilled && !storage.is(entry, findflag::unread)
                            : storage.size(entry) == 0;
        case Kind::hidden: return thing.isHidden;
        case Kind::system: return thing.isSystem;
        case Kind::folder:
            return std::ranges::any_of(thing.above, [&](auto at) { return isMeant(node, at); }) ||
                   holdsRoot(node);
        case Kind::parent: return isMeant(node, thing.above.front());
        }
        return false;
    }

    bool hasWordInName(const FindQueryNode& node, std::uint32_t entry) {
        return !node.needsWordInName || std::ranges::any_of(node.children, [&](const auto& child) {
            return mayBeInFolder(child) && textHolds(child, in.things_[entry]);
        });
    }
    bool isInFolder(const FindQueryNode& node, std::uint32_t entry, bool asWhole) {
        std::vector<std::string> names = in.things_[0].components;
        for (const std::uint32_t folder : in.things_[entry].above) {
            if (folder != 0) names.push_back(in.things_[folder].name.folded);
        }
        const std::string& word = node.text.folded;
        return std::ranges::any_of(names, [&](const std::string& name) {
            return asWhole ? name == word : name.find(word) != std::string::npos;
        });
    }

    /// Whether words stand in folders, the rank of the name, whether a folder's name is longer than
    /// its word; the last for what no folder holds.
    using Fit = std::tuple<bool, unsigned, bool>;
    static constexpr Fit unmet{true, 9, true};
    static unsigned standing(const Fit& fit) {
        const auto [isInFolders, rank, isInParts] = fit;
        constexpr std::array<unsigned, 5> costs{0, 5, 10, 16, 24};
        return fit == unmet ? 127 : (isInFolders ? 64 : 0) + costs.at(rank) + (isInParts ? 6 : 0);
    }

    std::optional<Fit> fit(const FindQueryNode& node, std::uint32_t entry) {
        const Thing& thing = in.things_[entry];
        if (const std::string text = rankingText(node, byPath); !text.empty()) {
            return Fit{false, rankOf(thing.name.own, thing.name.folded, text), false};
        }
        if (node.kind != Kind::all && node.kind != Kind::any) return std::nullopt;
        bool isInFolders = false;
        bool isInParts = false;
        for (const FindQueryNode& child : node.children) {
            if (!mayBeInFolder(child) || textHolds(child, thing)) continue;
            if (!isInFolder(child, entry, false) || !hasWordInName(node, entry)) return unmet;
            isInFolders = true;
            isInParts = isInParts || !isInFolder(child, entry, true);
        }
        std::optional<Fit> best;
        for (const FindQueryNode& child : node.children) {
            const auto one = fit(child, entry);
            const bool isWanted = node.kind == Kind::any || isInFolders || !best;
            const bool isBetter = one && (!best || standing(*one) < standing(*best));
            if (isWanted && isBetter) best = one;
        }
        if (best && *best != unmet && isInFolders) {
            best = Fit{true, std::get<1>(*best), std::get<2>(*best) || isInParts};
        }
        return best;
    }

    const std::vector<std::string>& wanted(const FindQueryNode& node) {
        auto [at, isNew] = folders.try_emplace(&node);
        if (isNew) at->second = foldedComponents(node.names.at(0));
        return at->second;
    }
    bool isMeant(const FindQueryNode& node, std::uint32_t folder) {
        const auto& path = wanted(node);
        const auto& components = in.things_[folder].components;
        if (node.names.at(0).starts_with('/')) return components == path;
        return path.empty() ? folder == 0 : endsWith(components, path);
    }
    bool holdsRoot(const FindQueryNode& node) {
        const auto& path = wanted(node);
        const auto& root = in.things_[0].components;
        return node.names.at(0).starts_with('/') && path.size() <= root.size() &&
               std::equal(path.begin(), path.end(), root.begin());
    }

    bool textHolds(const FindQueryNode& node, const Thing& thing) {
        const FindTextTerm& term = node.text;
        const Text& where = term.isInPath ? thing.path : thing.name;
        const std::string& text = term.isCaseSensitive ? where.own : where.folded;
        std::string needle = term.isCaseSensitive ? term.text : term.folded;
        if (term.mode == FindTextMode::regex) return expressionHolds(node, where.own);
        // A text that begins with the root's own path is fixed to the beginning.
        bool isFixed = false;
        const std::string& root = storage.rootPath;
        const std::string start = term.isCaseSensitive ? root : searchFolded(root);
        if (term.isInPath && root != "/" && (needle + "/").starts_with(start + "/")) {
            isFixed = true;
            needle = needle.size() > start.size() ? needle.substr(start.size()) : "/";
        }
        switch (term.mode) {
        case FindTextMode::contains:
            return isFixed ? text.starts_with(needle) : text.find(needle) != std::string::npos;
        case FindTextMode::word:
            return naiveWord(needle, {.own = where.own,
                                      .folded = where.folded,
                                      .inOwn = term.isCaseSensitive,
                                      .atBeginning = isFixed});
        case FindTextMode::exact: {
            if (!term.isInPath) return text == needle;
            if (needle.starts_with('/')) needle.erase(0, 1);
            if (needle.ends_with('/')) needle.pop_back();
            return text == "/" + needle;
        }
        case FindTextMode::glob: return globHolds(term, needle, text, isFixed);
        case FindTextMode::regex: break;
        }
        return false;
    }

    static bool globHolds(const FindTextTerm& term, const std::string& pattern,
                          const std::string& text, bool isFixed) {
        const bool isWhole = !term.isInPath || isFixed || pattern.starts_with('*');
        if (isWhole) return naiveGlob(pattern, text, term.hasSets);
        // From the beginning of some component, with or without the "/" before it.
        const bool isWithSlash = pattern.starts_with('/');
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] != '/') continue;
            const std::string rest = text.substr(at + (isWithSlash ? 0 : 1));
            if (naiveGlob(pattern, rest, term.hasSets)) return true;
        }
        return false;
    }

    bool expressionHolds(const FindQueryNode& node, const std::string& own) {
        auto& expression = expressions[&node];
        if (expression == nullptr) {
            RE2::Options options(RE2::Quiet);
            options.set_case_sensitive(node.text.isCaseSensitive);
            expression = std::make_unique<RE2>(node.text.text, options);
        }
        const std::string text = repairedUTF8(own.substr(node.text.isInPath ? 1 : 0));
        return RE2::PartialMatch(text, *expression);
    }
};

NaiveFind::NaiveFind(const FindIndexStorage& storage) : storage_(storage), placed_(storage) {
    placed_.place.clear(); // rated as a whole, whatever was rated before
    placed_.extendPlaces();
    for (std::uint32_t entry = 0; entry < storage.count(); ++entry) {
        things_.push_back(thing(entry));
        if (entry > 0 && !storage.is(entry, findflag::deleted)) {
            things_[storage.parent[entry]].isFilled = true;
        }
    }
}

NaiveFind::Thing NaiveFind::thing(std::uint32_t entry) const {
    Thing thing{
        .name = {.own = std::string(storage_.name(entry)), .folded = ""}, .path = {}, .above = {}};
    thing.name.folded = searchFolded(thing.name.own);
    if (storage_.is(entry, findflag::folder)) {
        thing.components = foldedComponents(storage_.path(entry));
    }
    for (std::uint32_t at = entry; at != 0; at = storage_.parent[at]) {
        const std::string name(storage_.name(at));
        thing.path.own.insert(0, "/" + name);
        thing.path.folded.insert(0, "/" + searchFolded(name));
        thing.above.push_back(storage_.parent[at]);
        thing.isGone = thing.isGone || storage_.is(at, findflag::deleted);
        thing.isHidden = thing.isHidden || (storage_.kind[at] & findkind::hiddenItself) != 0;
        const bool isFolder = storage_.is(at, findflag::folder);
        thing.isSystem = isFolder && storage_.parent[at] == 0 && storage_.marksSystemFolders &&
                         FindIndexStorage::isSystemTopLevelName(name);
        const bool isPackage = isFolder && FindExtensions::isPackage(name);
        thing.isInPackage = thing.isInPackage || (at != entry && isPackage);
    }
    return thing;
}

FindSearchResult NaiveFind::search(std::string_view query, const Question& question) const {
    const FindQuery read = parsedFindQuery(query, question.now);
    Search search{.in = *this, .storage = storage_, .byPath = !hasRankingName(read.root)};
    // Standing, depth, length of the name, the later date, the path.
    using Key = std::tuple<unsigned, std::size_t, std::size_t, std::int64_t, std::string>;
    std::vector<std::pair<Key, std::uint32_t>> found;
    for (std::uint32_t entry = 1; entry < things_.size(); ++entry) {
        const Thing& thing = things_[entry];
        const FindScope& scope = question.scope;
        if (thing.isGone || (thing.isHidden && !scope.hidden) ||
            (thing.isSystem && !scope.system) || (thing.isInPackage && !scope.packageContents) ||
            !search.holds(read.root, entry)) {
            continue;
        }
        const auto fit = search.fit(read.root, entry).value_or(Search::Fit{false, 4, false});
        const unsigned standing = Search::standing(fit) + placed_.placeCost(entry);
        found.emplace_back(
            Key{std::min(standing, 127U), std::min<std::size_t>(thing.above.size(), 255),
                thing.name.own.size(), -std::int64_t{storage_.mtime[entry]}, thing.path.own},
            entry);
    }
    std::ranges::sort(found);
    FindSearchResult result{.matchCount = found.size(), .problem = read.problem};
    for (std::size_t i = 0; i < found.size() && i < question.limit; ++i) {
        result.hits.push_back(found[i].second);
    }
    return result;
}

} // namespace tidyro::testing
