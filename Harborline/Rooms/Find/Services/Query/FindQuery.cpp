#include <algorithm>
#include <cstddef>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "Rooms/Find/Services/Query/FindConditions.h"
#include "Rooms/Find/Services/Query/FindQuery.h"
#include "Rooms/Find/Services/Query/FindQueryTokens.h"

namespace tidyro {

namespace {

using Kind = FindQueryNode::Kind;
using TokenKind = FindQueryToken::Kind;

/// Several nodes as one; of no nodes there is nothing.
std::optional<FindQueryNode> joined(Kind kind, std::vector<FindQueryNode> nodes) {
    if (nodes.empty()) return std::nullopt;
    if (nodes.size() == 1) return std::move(nodes.front());
    return FindQueryNode{.kind = kind, .children = std::move(nodes)};
}

void flatten(FindQueryNode& node);

void collect(Kind kind, std::vector<FindQueryNode>& from, std::vector<FindQueryNode>& into) {
    for (FindQueryNode& node : from) {
        if (node.kind == kind) {
            collect(kind, node.children, into);
        } else {
            flatten(node);
            into.push_back(std::move(node));
        }
    }
}

/// Takes apart what is in something of its own kind, so that nothing nests without need. Done at
/// the end, from outside to inside: each node moves once, however deep the brackets are.
void flatten(FindQueryNode& node) {
    std::vector<FindQueryNode> children;
    children.reserve(node.children.size());
    collect(node.kind, node.children, children);
    node.children = std::move(children);
}

/// Each takes a set of entries of its own while a query is answered.
constexpr std::size_t maxFolderWords = 15;

/// Whether no entry meets the node that does not hold some text in its name.
bool asksForName(const FindQueryNode& node) {
    switch (node.kind) {
    case Kind::text: return !node.text.isInPath && !node.text.mayBeInFolder;
    case Kind::all: return node.needsWordInName || std::ranges::any_of(node.children, asksForName);
    case Kind::any: return std::ranges::all_of(node.children, asksForName);
    default: return false;
    }
}

void keepToNames(FindQueryNode& node) {
    node.text.mayBeInFolder = false;
    for (FindQueryNode& child : node.children) keepToNames(child);
}

/// Settles which words may be in folders: those of an `all` beside other texts. What is denied
/// keeps to names; "-old" would else take away all that lies in some folder called "Golden".
void settleWords(FindQueryNode& node) {
    std::vector<FindQueryNode*> words;
    std::set<std::string_view> known;
    bool isNameAskedFor = false;
    for (FindQueryNode& child : node.children) {
        const bool isWord = child.kind == Kind::text && child.text.mayBeInFolder;
        const bool isOneTooMany =
            known.size() == maxFolderWords && !known.contains(child.text.folded);
        if (isWord && node.kind == Kind::all && !isOneTooMany) {
            known.insert(child.text.folded);
            words.push_back(&child);
            continue;
        }
        if (isWord || child.kind == Kind::none) {
            keepToNames(child);
        } else {
            settleWords(child);
        }
        isNameAskedFor = isNameAskedFor || asksForName(child);
    }
    node.needsWordInName = known.size() > 1 && !isNameAskedFor;
    if (known.size() > 1 || isNameAskedFor) return;
    for (FindQueryNode* word : words) keepToNames(*word);
}

/// By descent: the tokens bound its depth.
class QueryParser {
  public:
    QueryParser(std::vector<FindQueryToken> tokens, Timestamp now)
        : tokens_(std::move(tokens)), conditions_(now) {}

    FindQuery read() {
        FindQuery query{.root{.kind = Kind::all}};
        auto whole = alternatives();
        if (whole && whole->kind == Kind::all) {
            query.root = *std::move(whole);
        } else if (whole) {
            query.root.children.push_back(*std::move(whole));
        }
        flatten(query.root);
        settleWords(query.root);
        query.problem = conditions_.problem();
        return query;
    }

  private:
    [[nodiscard]] bool isAt(TokenKind kind) const {
        return at_ < tokens_.size() && tokens_[at_].kind == kind;
    }

    /// Steps over a token of this kind. Whether there was one.
    bool take(TokenKind kind) {
        if (!isAt(kind)) return false;
        ++at_;
        return true;
    }

    std::optional<FindQueryNode> alternatives() {
        std::vector<FindQueryNode> nodes;
        do {
            if (auto node = sideBySide()) nodes.push_back(*std::move(node));
        } while (take(TokenKind::either));
        return joined(Kind::any, std::move(nodes));
    }

    std::optional<FindQueryNode> sideBySide() {
        std::vector<FindQueryNode> nodes;
        while (at_ < tokens_.size() && !isAt(TokenKind::either) && !isAt(TokenKind::close)) {
            if (take(TokenKind::both)) continue;
            if (auto node = operand()) nodes.push_back(*std::move(node));
        }
        return joined(Kind::all, std::move(nodes));
    }

    std::optional<FindQueryNode> operand() {
        bool isDenied = false;
        while (take(TokenKind::denial)) isDenied = !isDenied;
        auto node = bracketOrWord();
        if (!node || !isDenied) return node;
        if (node->kind == Kind::none) return std::move(node->children.front());
        FindQueryNode denied{.kind = Kind::none};
        denied.children.push_back(*std::move(node));
        return denied;
    }

    std::optional<FindQueryNode> bracketOrWord() {
        if (at_ == tokens_.size()) return std::nullopt;
        const FindQueryToken& token = tokens_[at_];
        if (token.kind != TokenKind::word && token.kind != TokenKind::open) return std::nullopt;
        ++at_;
        if (token.kind == TokenKind::word) return conditions_.condition(token);
        auto inner = alternatives();
        ++at_; // the other bracket
        return inner;
    }

    std::vector<FindQueryToken> tokens_;
    FindConditions conditions_;
    std::size_t at_ = 0;
};

} // namespace

std::size_t globSetEnd(std::string_view pattern, std::size_t at) {
    if (at >= pattern.size() || pattern[at] != '[') return 0;
    ++at;
    if (at < pattern.size() && pattern[at] == '!') ++at;
    const std::size_t end = pattern.find(']', at + 1);
    return end == std::string_view::npos || at >= pattern.size() ? 0 : end + 1;
}

bool hasGlobRange(std::string_view text) {
    for (std::size_t at = text.find('['); at != std::string_view::npos;
         at = text.find('[', at + 1)) {
        const std::size_t end = globSetEnd(text, at);
        if (end == 0) continue;
        std::string_view members = text.substr(at + 1, end - at - 2);
        if (members.starts_with('!')) members.remove_prefix(1);
        while (members.size() >= 3 && members[1] == '-') members.remove_prefix(3);
        if (members.empty()) return true;
    }
    return false;
}

FindQuery parsedFindQuery(std::string_view text, Timestamp now) {
    FindQueryTokens read = findQueryTokens(text);
    FindQuery query = QueryParser(std::move(read.tokens), now).read();
    if (read.problem) query.problem = std::move(read.problem);
    return query;
}

} // namespace tidyro
