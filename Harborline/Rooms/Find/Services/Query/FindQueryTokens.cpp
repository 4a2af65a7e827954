#include "Rooms/Find/Services/Query/FindQueryTokens.h"

#include <utility>

namespace tidyro {

namespace {

using TokenKind = FindQueryToken::Kind;

constexpr std::size_t maxBracketDepth = 64;

void note(FindQueryTokens& query, std::string_view problem) {
    if (!query.problem) query.problem = problem;
}

/// How many bytes of a blank stand here: those of ASCII, and the wide one that keyboards for
/// Chinese and Japanese type.
std::size_t blankLength(std::string_view text) {
    constexpr std::string_view wide = "\xE3\x80\x80";
    if (text.starts_with(wide)) return wide.size();
    const char byte = text.empty() ? '\0' : text.front();
    return byte == ' ' || (byte >= '\t' && byte <= '\r') ? 1 : 0;
}

/// Where the value of a regular expression ends: brackets of its own belong to it.
class ExpressionExtent {
  public:
    /// Goes on by one byte. False: the value ends before it.
    [[nodiscard]] bool take(char byte, bool isInBrackets) {
        if (isEscaped_) {
            isEscaped_ = false;
        } else if (byte == '\\') {
            isEscaped_ = true;
        } else if (isInClass_) {
            // "]" as the first of a class is a member of it.
            if (byte == ']' && members_ > 0) isInClass_ = false;
            if (byte != '^' || members_ > 0) ++members_;
        } else if (byte == '[') {
            isInClass_ = true;
            members_ = 0;
        } else if (byte == '(') {
            ++depth_;
        } else if (byte == ')') {
            if (depth_ == 0) return !isInBrackets;
            --depth_;
        }
        return true;
    }

  private:
    bool isEscaped_ = false;
    bool isInClass_ = false;
    std::size_t members_ = 0;
    std::size_t depth_ = 0;
};

class QueryTokenizer {
  public:
    explicit QueryTokenizer(std::string_view rest) : rest_(rest) {}

    FindQueryTokens read() {
        while (skipBlanks(), !rest_.empty()) {
            const char byte = rest_.front();
            if (byte == '(') {
                take(TokenKind::open);
                ++open_;
            } else if (byte == ')') {
                take(TokenKind::close);
                if (open_ > 0) --open_;
            } else if (byte == '|') {
                take(TokenKind::either);
            } else {
                readSignsAndWord();
            }
        }
        return std::move(result_);
    }

  private:
    static bool isSign(char byte) { return byte == '-' || byte == '!'; }
    static bool isSeparator(char byte) { return byte == '(' || byte == ')' || byte == '|'; }

    void skipBlanks() {
        while (const std::size_t length = blankLength(rest_)) rest_.remove_prefix(length);
    }

    void take(TokenKind kind) {
        result_.tokens.push_back({.kind = kind, .text = std::string(1, rest_.front())});
        rest_.remove_prefix(1);
    }

    /// Signs deny what they stand directly before; those that stand alone are a word.
    void readSignsAndWord() {
        std::size_t signs = 0;
        while (signs < rest_.size() && isSign(rest_[signs])) ++signs;
        const std::string_view behind = rest_.substr(signs);
        const bool isAlone = behind.empty() || blankLength(behind) > 0 || behind.front() == ')' ||
                             behind.front() == '|';
        const bool isDenied = !isAlone && signs % 2 == 1;
        if (!isAlone) {
            if (isDenied) {
                result_.tokens.push_back(
                    {.kind = TokenKind::denial, .text = std::string(1, rest_.front())});
            }
            rest_ = behind;
            if (rest_.front() == '(') return;
        }
        const std::size_t before = result_.tokens.size();
        readWord();
        // Empty quotes are no word, and there is nothing to deny.
        if (isDenied && result_.tokens.size() == before) result_.tokens.pop_back();
    }

    void readWord() {
        FindQueryToken word{.kind = TokenKind::word};
        bool isQuoted = false;
        bool hasQuotes = false;
        bool mayOpenExpression = true;
        bool isInExpression = false;
        std::size_t fieldStart = 0;
        ExpressionExtent extent;
        for (; !rest_.empty(); rest_.remove_prefix(1)) {
            const char byte = rest_.front();
            if (rest_.starts_with("\\\"")) { // a quote that belongs to the name
                word.text += '"';
                rest_.remove_prefix(1);
                continue;
            }
            if (byte == '"') {
                isQuoted = !isQuoted;
                if (!std::exchange(hasQuotes, true)) word.unquoted = word.text.size();
                continue;
            }
            if (!isQuoted) {
                if (blankLength(rest_) > 0) break;
                if (isInExpression ? !extent.take(byte, open_ > 0) : isSeparator(byte)) break;
            }
            word.text += byte;
            if (byte == ':' && mayOpenExpression && !hasQuotes && !isInExpression) {
                const std::string_view field = std::string_view(word.text).substr(
                    fieldStart, word.text.size() - 1 - fieldStart);
                isInExpression = isFieldName(field, "regex");
                mayOpenExpression = isTextFieldName(field);
                fieldStart = word.text.size();
            }
        }
        if (isQuoted)
            note(result_, "A quote is not closed; the text up to the end was taken as quoted.");
        if (!hasQuotes) word.unquoted = word.text.size();
        if (word.text.empty()) return;
        if (!hasQuotes) word.kind = kindOf(word.text);
        result_.tokens.push_back(std::move(word));
    }

    static TokenKind kindOf(std::string_view text) {
        return text == "OR"    ? TokenKind::either
               : text == "AND" ? TokenKind::both
               : text == "NOT" ? TokenKind::denial
                               : TokenKind::word;
    }

    std::string_view rest_;
    std::size_t open_ = 0; ///< brackets that are open here
    FindQueryTokens result_;
};

/// Gives each bracket its other one, and leaves out those that stand too deep.
void balanceBrackets(FindQueryTokens& query) {
    std::vector<FindQueryToken> kept;
    kept.reserve(query.tokens.size());
    std::size_t depth = 0;
    for (FindQueryToken& token : query.tokens) {
        bool isKept = true;
        if (token.kind == TokenKind::open) {
            isKept = ++depth <= maxBracketDepth;
            if (!isKept) {
                note(query,
                     "The brackets are too deep in one another; the inner ones were passed over.");
            }
        } else if (token.kind == TokenKind::close) {
            isKept = depth > 0 && depth <= maxBracketDepth;
            if (depth == 0) {
                note(query, "A bracket is closed that was not opened; it was passed over.");
            } else {
                --depth;
            }
        }
        if (isKept) kept.push_back(std::move(token));
    }
    if (depth > 0) note(query, "A bracket is not closed; it was closed at the end.");
    for (; depth > 0; --depth) {
        if (depth <= maxBracketDepth) kept.push_back({.kind = TokenKind::close, .text = ")"});
    }
    query.tokens = std::move(kept);
}

std::string unjoined(const FindQueryToken& token) {
    return "\"" + token.text + "\" has nothing to join here; it was ";
}

/// Turns operators that have nothing to join into words, when they are made of letters: people
/// look for names with "NOT" in them. The others go.
void settleOperators(FindQueryTokens& query) {
    std::vector<FindQueryToken> kept;
    kept.reserve(query.tokens.size());
    for (std::size_t i = 0; i < query.tokens.size(); ++i) {
        FindQueryToken& token = query.tokens[i];
        const TokenKind before = kept.empty() ? TokenKind::open : kept.back().kind;
        const TokenKind after =
            i + 1 < query.tokens.size() ? query.tokens[i + 1].kind : TokenKind::close;
        const bool isJoiner = token.kind == TokenKind::both || token.kind == TokenKind::either;
        const bool hasOperands =
            (!isJoiner || before == TokenKind::word || before == TokenKind::close) &&
            (after == TokenKind::word || after == TokenKind::open || after == TokenKind::denial);
        if ((isJoiner || token.kind == TokenKind::denial) && !hasOperands) {
            if (token.unquoted == 0) {
                note(query, unjoined(token) + "passed over.");
                continue;
            }
            note(query, unjoined(token) + "taken for a word.");
            token.kind = TokenKind::word;
        }
        kept.push_back(std::move(token));
    }
    query.tokens = std::move(kept);
}

} // namespace

FindQueryTokens findQueryTokens(std::string_view query) {
    FindQueryTokens tokens = QueryTokenizer(query).read();
    balanceBrackets(tokens);
    settleOperators(tokens);
    return tokens;
}

} // namespace tidyro
