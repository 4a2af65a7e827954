#include "Rooms/Find/Services/Query/FindQueryTokens.h"

#include <utility>

namespace tidyro {

namespace {

using Kind = FindQueryToken::Kind;

constexpr std::size_t deepestBracket = 64;

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
    bool endsBefore(char byte, bool isInBrackets) {
        if (escapes_) {
            escapes_ = false;
        } else if (byte == '\\') {
            escapes_ = true;
        } else if (inClass_) {
            // "]" as the first of a class is a member of it.
            if (byte == ']' && members_ > 0) inClass_ = false;
            if (byte != '^' || members_ > 0) ++members_;
        } else if (byte == '[') {
            inClass_ = true;
            members_ = 0;
        } else if (byte == '(') {
            ++depth_;
        } else if (byte == ')') {
            if (depth_ == 0) return isInBrackets;
            --depth_;
        }
        return false;
    }

  private:
    bool escapes_ = false;
    bool inClass_ = false;
    std::size_t members_ = 0;
    std::size_t depth_ = 0;
};

class Tokenizer {
  public:
    explicit Tokenizer(std::string_view rest) : rest_(rest) {}

    FindQueryTokens read() {
        while (skipBlanks(), !rest_.empty()) {
            const char byte = rest_.front();
            if (byte == '(') {
                take(Kind::open);
                ++open_;
            } else if (byte == ')') {
                take(Kind::close);
                if (open_ > 0) --open_;
            } else if (byte == '|') {
                take(Kind::either);
            } else {
                readSignsAndWord();
            }
        }
        return std::move(result_);
    }

  private:
    static bool isSign(char byte) { return byte == '-' || byte == '!'; }
    static bool partsWords(char byte) { return byte == '(' || byte == ')' || byte == '|'; }

    void skipBlanks() {
        while (const std::size_t length = blankLength(rest_)) rest_.remove_prefix(length);
    }

    void take(Kind kind) {
        result_.tokens.push_back({.kind = kind, .text = std::string(1, rest_.front())});
        rest_.remove_prefix(1);
    }

    /// Signs deny what they stand directly before; those that stand alone are a word.
    void readSignsAndWord() {
        std::size_t signs = 0;
        while (signs < rest_.size() && isSign(rest_[signs])) ++signs;
        const std::string_view behind = rest_.substr(signs);
        const bool standsAlone = behind.empty() || blankLength(behind) > 0 ||
                                 behind.front() == ')' || behind.front() == '|';
        const bool isDenied = !standsAlone && signs % 2 == 1;
        if (!standsAlone) {
            if (isDenied) {
                result_.tokens.push_back(
                    {.kind = Kind::denial, .text = std::string(1, rest_.front())});
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
        FindQueryToken word{.kind = Kind::word};
        bool isQuoted = false;
        bool hasQuotes = false;
        bool mayOpenExpression = true;
        bool inExpression = false;
        std::size_t fieldStart = 0;
        ExpressionExtent extent;
        for (; !rest_.empty(); rest_.remove_prefix(1)) {
            const char byte = rest_.front();
            if (byte == '"') {
                isQuoted = !isQuoted;
                if (!std::exchange(hasQuotes, true)) word.unquoted = word.text.size();
                continue;
            }
            if (!isQuoted) {
                if (blankLength(rest_) > 0) break;
                if (inExpression ? extent.endsBefore(byte, open_ > 0) : partsWords(byte)) break;
            }
            word.text += byte;
            if (byte == ':' && mayOpenExpression && !hasQuotes && !inExpression) {
                const std::string_view field = std::string_view(word.text).substr(
                    fieldStart, word.text.size() - 1 - fieldStart);
                inExpression = isFieldName(field, "regex");
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

    static Kind kindOf(std::string_view text) {
        return text == "OR"    ? Kind::either
               : text == "AND" ? Kind::both
               : text == "NOT" ? Kind::denial
                               : Kind::word;
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
        bool keeps = true;
        if (token.kind == Kind::open) {
            keeps = ++depth <= deepestBracket;
            if (!keeps) {
                note(query,
                     "The brackets are too deep in one another; the inner ones were passed over.");
            }
        } else if (token.kind == Kind::close) {
            keeps = depth > 0 && depth <= deepestBracket;
            if (depth == 0) {
                note(query, "A bracket is closed that was not opened; it was passed over.");
            } else {
                --depth;
            }
        }
        if (keeps) kept.push_back(std::move(token));
    }
    if (depth > 0) note(query, "A bracket is not closed; it was closed at the end.");
    for (; depth > 0; --depth) {
        if (depth <= deepestBracket) kept.push_back({.kind = Kind::close, .text = ")"});
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
        const Kind before = kept.empty() ? Kind::open : kept.back().kind;
        const Kind after = i + 1 < query.tokens.size() ? query.tokens[i + 1].kind : Kind::close;
        const bool isJoiner = token.kind == Kind::both || token.kind == Kind::either;
        const bool fits = (!isJoiner || before == Kind::word || before == Kind::close) &&
                          (after == Kind::word || after == Kind::open || after == Kind::denial);
        if ((isJoiner || token.kind == Kind::denial) && !fits) {
            if (token.unquoted == 0) {
                note(query, unjoined(token) + "passed over.");
                continue;
            }
            note(query, unjoined(token) + "taken for a word.");
            token.kind = Kind::word;
        }
        kept.push_back(std::move(token));
    }
    query.tokens = std::move(kept);
}

} // namespace

FindQueryTokens findQueryTokens(std::string_view query) {
    FindQueryTokens tokens = Tokenizer(query).read();
    balanceBrackets(tokens);
    settleOperators(tokens);
    return tokens;
}

} // namespace tidyro
