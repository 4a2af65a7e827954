#include "Rooms/Find/Services/Query/FindRegex.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include <re2/filtered_re2.h>
#include <re2/re2.h>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// For the compiled expression and its automata. What people type needs a hundredth of it.
constexpr std::int64_t memoryLimit = std::int64_t{4} << 20U;

/// Bytes. Preparing one takes up to the square of its length.
constexpr std::size_t maxExpressionBytes = 4'096;

/// Instructions of a compiled expression. A larger one may need an automaton that outgrows its
/// memory, and then takes a time for each byte that grows with its size: minutes for all names.
constexpr int maxProgramSize = 4'000;

RE2::Options engineOptions(FindRegex::Options options) {
    RE2::Options chosen;
    chosen.set_max_mem(memoryLimit);
    chosen.set_log_errors(false);
    chosen.set_case_sensitive(options.isCaseSensitive);
    chosen.set_never_capture(true); // nobody asks for groups, and they cost much
    return chosen;
}

} // namespace

struct FindRegex::Program {
    RE2 expression;
    /// The same expression once more, for what it says of literals.
    re2::FilteredRE2 filter = {};
    std::vector<std::string> literals = {};
    /// For each literal of the filter its place in `literals`; `maxLiterals` where it has none and
    /// may be anywhere.
    std::vector<std::size_t> places = {};

    void prepareFilter(std::string_view text, Options options);
    void chooseLiterals(const std::vector<std::string>& texts, std::size_t minLength);
    [[nodiscard]] bool mayMatch(std::uint32_t held) const;
};

void FindRegex::Program::prepareFilter(std::string_view text, Options options) {
    filter = re2::FilteredRE2(1);
    int number = 0;
    if (filter.Add(text, engineOptions(options), &number) != RE2::NoError) return;
    std::vector<std::string> texts;
    filter.Compile(&texts);
    // Single letters stand in many names, and are worth something only where there is no more.
    chooseLiterals(texts, 2);
    if (mayMatch(0)) chooseLiterals(texts, 1);
}

void FindRegex::Program::chooseLiterals(const std::vector<std::string>& texts,
                                        std::size_t minLength) {
    literals.clear();
    places.clear();
    for (const std::string& literal : texts) {
        // "\u017F" and "\u212A" are letters of a small "s" and "k" here as well. What is not ASCII
        // when it is folded may have been joined with its neighbours.
        std::string folded = searchFolded(literal);
        const auto known = std::ranges::find(literals, folded);
        places.push_back(static_cast<std::size_t>(known - literals.begin()));
        if (known != literals.end()) continue;
        const bool isUseful = folded.size() >= minLength && isASCII(folded) &&
                              literals.size() < FindRegex::maxLiterals;
        if (isUseful) literals.push_back(std::move(folded));
        if (!isUseful) places.back() = FindRegex::maxLiterals;
    }
}

bool FindRegex::Program::mayMatch(std::uint32_t held) const {
    if (literals.empty()) return true;
    std::vector<int> numbers;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const bool isHeld = places[i] == maxLiterals || (held >> places[i] & 1U) != 0;
        if (isHeld) numbers.push_back(static_cast<int>(i));
    }
    std::vector<int> expressions;
    filter.AllPotentials(numbers, &expressions);
    return !expressions.empty();
}

FindRegex::FindRegex() = default;
FindRegex::~FindRegex() = default;

std::shared_ptr<const FindRegex> FindRegex::compiled(std::string_view expression, Options options) {
    if (expression.size() > maxExpressionBytes) return nullptr;
    auto made = std::make_shared<FindRegex>();
    made->program_.reset(new Program{.expression = RE2(expression, engineOptions(options))});
    const RE2& compiled = made->program_->expression;
    if (!compiled.ok() || compiled.ProgramSize() > maxProgramSize) return nullptr;
    made->program_->prepareFilter(expression, options);
    return made;
}

bool FindRegex::isIn(std::string_view text) const {
    const auto finds = [this](std::string_view in) {
        return program_->expression.Match(in, 0, in.size(), RE2::UNANCHORED, nullptr, 0);
    };
    return isASCII(text) ? finds(text) : finds(repairedUTF8(text));
}

std::span<const std::string> FindRegex::literals() const { return program_->literals; }

bool FindRegex::mayMatch(std::uint32_t held) const { return program_->mayMatch(held); }

struct FindRegexRun::Lines {
    RE2 expression;
    std::string text = {};
    std::vector<std::size_t> ends = {}; ///< of the lines in `text`
    static constexpr std::size_t atOnce = 32;

    /// Whether an expression means the same within each of many lines as in a text of its own:
    /// nothing in it asks for the ends of the whole text, for any byte or for other settings.
    [[nodiscard]] static bool mayRunOverLines(std::string_view expression) {
        for (const std::string_view unfit : {"\\A", "\\z", "\\C", "\\Q"}) {
            if (expression.find(unfit) != std::string_view::npos) return false;
        }
        for (std::size_t at = expression.find("(?"); at != std::string_view::npos;
             at = expression.find("(?", at + 1)) {
            const std::string_view rest = expression.substr(at + 2);
            if (!rest.starts_with(':') && !rest.starts_with("P<")) return false;
        }
        return true;
    }

    /// False when a text has a line break of its own.
    [[nodiscard]] bool join(std::span<const std::string_view> texts) {
        const char* begin = texts.front().data();
        const char* end = texts.back().data() + texts.back().size();
        const std::string_view all(begin, static_cast<std::size_t>(end - begin));
        if (all.find('\n') != std::string_view::npos) return false;
        std::size_t length = 0;
        for (const std::string_view one : texts) length += one.size() + 1;
        if (isASCII(all)) {
            text.resize(length + atOnce);
            append(texts, end);
        } else {
            appendRepaired(texts);
        }
        text.resize(ends.back());
        return true;
    }

    void append(std::span<const std::string_view> texts, const char* readable) {
        ends.clear();
        char* to = text.data();
        for (const std::string_view one : texts) {
            if (!ends.empty()) *to++ = '\n';
            // Most names are short: a fixed number of bytes is copied without asking how many.
            if (one.size() <= atOnce && readable - one.data() >= std::ptrdiff_t{atOnce}) {
                std::memcpy(to, one.data(), atOnce);
            } else {
                std::memcpy(to, one.data(), one.size());
            }
            to += one.size();
            ends.push_back(static_cast<std::size_t>(to - text.data()));
        }
    }

    void appendRepaired(std::span<const std::string_view> texts) {
        ends.clear();
        text.clear();
        for (const std::string_view one : texts) {
            if (!ends.empty()) text += '\n';
            text += repairedUTF8(one);
            ends.push_back(text.size());
        }
    }

    [[nodiscard]] std::uint64_t matching() const {
        std::uint64_t matches = 0;
        std::size_t line = 0;
        re2::StringPiece found;
        for (std::size_t at = 0; at <= text.size(); at = ends[line] + 1) {
            if (!expression.Match(text, at, text.size(), RE2::UNANCHORED, &found, 1)) break;
            const auto place = static_cast<std::size_t>(found.data() - text.data());
            while (ends[line] < place) ++line;
            matches |= std::uint64_t{1} << line;
        }
        return matches;
    }
};

FindRegexRun::FindRegexRun(const FindRegex& expression) : expression_(expression) {
    const RE2& original = expression.program_->expression;
    if (!Lines::mayRunOverLines(original.pattern())) return;
    RE2::Options chosen = engineOptions({.isCaseSensitive = original.options().case_sensitive()});
    chosen.set_never_nl(true);
    lines_.reset(new Lines{.expression = RE2("(?m:" + original.pattern() + ")", chosen)});
    if (!lines_->expression.ok()) lines_ = nullptr;
}

FindRegexRun::~FindRegexRun() = default;

std::uint64_t FindRegexRun::oneByOne(std::span<const std::string_view> texts) const {
    std::uint64_t matches = 0;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        matches |= std::uint64_t{expression_.isIn(texts[i])} << i;
    }
    return matches;
}

std::uint64_t FindRegexRun::matching(std::span<const std::string_view> texts) {
    // Where a match begins is found out by a second run backwards: it pays while few match.
    constexpr std::uint64_t sample = 1'024;
    const bool areMany = seen_ >= sample && matched_ * 4 > seen_;
    const bool areJoined = lines_ != nullptr && !areMany && texts.size() > 1 && lines_->join(texts);
    const std::uint64_t matches = areJoined ? lines_->matching() : oneByOne(texts);
    seen_ += texts.size();
    matched_ += static_cast<std::uint64_t>(std::popcount(matches));
    return matches;
}

} // namespace tidyro
