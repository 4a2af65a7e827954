#include "Rooms/Find/Services/Query/FindConditions.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Rooms/Find/Services/Query/FindSpan.h"

namespace tidyro {

namespace {

using Kind = FindQueryNode::Kind;
using Condition = std::optional<FindQueryNode>;

/// Expressions and folders take memory of their own while a query is answered; a text of a hundred
/// thousand characters could ask for gigabytes.
constexpr std::size_t maxCostlyConditions = 32;
/// Each may be looked for in all names; what people type has a handful.
constexpr std::size_t maxWords = 256;

/// Alternatives in braces are looked for one by one.
constexpr std::size_t maxAlternatives = 32;

/// How a text matches, as the fields before it say.
struct TextManner {
    FindTextMode mode = FindTextMode::contains;
    bool isCaseSensitive = false;
    bool isInPath = false;
    bool isQuoted = false; ///< brackets and braces in it stand for themselves
};

/// The place behind the brace that closes the one at `open`; 0 when none does, or when there is
/// only one alternative. Calls `visit` with each comma between them.
template <class Visit>
std::size_t endOfBraces(std::string_view text, std::size_t open, const Visit& visit) {
    std::size_t depth = 0;
    bool hasComma = false;
    for (std::size_t at = open; at < text.size(); ++at) {
        if (text[at] == '{') ++depth;
        if (text[at] == '}' && --depth == 0) return hasComma ? at + 1 : 0;
        if (text[at] != ',' || depth != 1) continue;
        hasComma = true;
        visit(at);
    }
    return 0;
}

/// "main.{c,h}" as "main.c", "main.h"; the text itself when it has no braces, or too many.
std::vector<std::string> alternativesOf(std::string_view text) {
    constexpr std::size_t maxBytes = 1'000; // looking for braces takes the square of it
    if (text.size() > maxBytes) return {std::string(text)};
    std::vector<std::string> open{std::string(text)};
    std::vector<std::string> done;
    while (!open.empty()) {
        const std::string pattern = std::move(open.back());
        open.pop_back();
        std::vector<std::size_t> cuts;
        std::size_t brace = pattern.find('{');
        std::size_t end = 0;
        for (; brace != std::string::npos; brace = pattern.find('{', brace + 1)) {
            cuts.assign(1, brace);
            end = endOfBraces(pattern, brace, [&](std::size_t comma) { cuts.push_back(comma); });
            if (end != 0) break;
        }
        if (end == 0) {
            done.push_back(pattern);
            continue;
        }
        cuts.push_back(end - 1);
        if (open.size() + done.size() + cuts.size() > maxAlternatives) return {std::string(text)};
        for (std::size_t i = cuts.size() - 1; i > 0; --i) { // the first one is next
            open.push_back(fmt::format("{}{}{}", pattern.substr(0, brace),
                                       pattern.substr(cuts[i - 1] + 1, cuts[i] - cuts[i - 1] - 1),
                                       pattern.substr(end)));
        }
    }
    return done;
}

FindQueryNode textCondition(std::string_view text, TextManner manner) {
    FindTextTerm term{.text = std::string(text),
                      .folded = searchFolded(text),
                      .mode = manner.mode,
                      .isCaseSensitive = manner.isCaseSensitive,
                      .isInPath = manner.isInPath};
    const bool hasWildcards = text.find_first_of("*?") != std::string_view::npos;
    const bool isPattern = hasWildcards || (!manner.isQuoted && hasGlobRange(text));
    if (isPattern && term.mode == FindTextMode::contains) term.mode = FindTextMode::glob;
    term.hasSets = term.mode == FindTextMode::glob && !manner.isQuoted;
    if (text.find('/') != std::string_view::npos) term.isInPath = true;
    // Of nothing but marks folding leaves nothing, which would stand in every name.
    if (term.folded.empty()) term.isCaseSensitive = true;
    return FindQueryNode{.kind = Kind::text, .text = std::move(term)};
}

/// The same for a text that may have alternatives in braces. Each of them is a glob: "main.{c,h}"
/// means two names, whole ones.
FindQueryNode textWithAlternatives(std::string_view text, TextManner manner) {
    const bool mayHaveBraces = !manner.isQuoted && manner.mode == FindTextMode::contains;
    const auto alternatives =
        mayHaveBraces ? alternativesOf(text) : std::vector<std::string>{std::string(text)};
    if (alternatives.size() == 1) return textCondition(text, manner);
    manner.mode = FindTextMode::glob;
    FindQueryNode any{.kind = Kind::any};
    any.children.reserve(alternatives.size());
    for (const std::string& one : alternatives) any.children.push_back(textCondition(one, manner));
    return any;
}

Condition expressionCondition(std::string_view text, TextManner manner) {
    auto regex = FindRegex::compiled(text, {.isCaseSensitive = manner.isCaseSensitive});
    if (regex == nullptr) return std::nullopt;
    return FindQueryNode{.kind = Kind::text,
                         .text = {.text = std::string(text),
                                  .mode = FindTextMode::regex,
                                  .isCaseSensitive = manner.isCaseSensitive,
                                  .isInPath = manner.isInPath,
                                  .regex = std::move(regex)}};
}

/// Fields before a text may stand before one another; the last that names a mode counts.
TextManner textManner(std::string_view& value, std::size_t unquoted) {
    const std::size_t whole = value.size();
    TextManner manner;
    while (manner.mode != FindTextMode::regex) {
        const std::size_t colon = value.find(':');
        if (colon == std::string_view::npos || whole - value.size() + colon >= unquoted) break;
        const std::string_view field = value.substr(0, colon);
        if (!isTextFieldName(field)) break;
        if (isFieldName(field, "case")) manner.isCaseSensitive = true;
        if (isFieldName(field, "path")) manner.isInPath = true;
        if (isFieldName(field, "word")) manner.mode = FindTextMode::word;
        if (isFieldName(field, "exact")) manner.mode = FindTextMode::exact;
        if (isFieldName(field, "regex")) manner.mode = FindTextMode::regex;
        value.remove_prefix(colon + 1);
    }
    return manner;
}

/// The parts of a list; empty ones left out.
std::vector<std::string_view> listed(std::string_view value) {
    std::vector<std::string_view> parts;
    while (!value.empty()) {
        const std::size_t end = std::min(value.find_first_of(";,"), value.size());
        if (end > 0) parts.push_back(value.substr(0, end));
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return parts;
}

Condition extensionCondition(std::string_view value) {
    FindQueryNode node{.kind = Kind::ext};
    for (std::string_view extension : listed(value)) {
        if (extension.starts_with('.')) extension.remove_prefix(1);
        std::string folded = searchFolded(extension);
        if (!folded.empty()) node.names.push_back(std::move(folded));
    }
    if (node.names.empty()) return std::nullopt;
    std::ranges::sort(node.names);
    const auto repeated = std::ranges::unique(node.names);
    node.names.erase(repeated.begin(), repeated.end());
    return node;
}

struct KindName {
    std::string_view text; ///< in the singular
    FindCategory category;
};

/// What people call the categories beside their own names.
constexpr std::array<KindName, 12> otherKindNames{{{"doc", FindCategory::document},
                                                   {"picture", FindCategory::image},
                                                   {"photo", FindCategory::image},
                                                   {"movie", FindCategory::video},
                                                   {"film", FindCategory::video},
                                                   {"music", FindCategory::audio},
                                                   {"song", FindCategory::audio},
                                                   {"sound", FindCategory::audio},
                                                   {"source", FindCategory::code},
                                                   {"application", FindCategory::app},
                                                   {"program", FindCategory::app},
                                                   {"directory", FindCategory::folder}}};

std::optional<FindCategory> categoryNamed(std::string_view name) {
    if (const auto category = fromRawValue<FindCategory>(name)) return category;
    const auto* other = std::ranges::find(otherKindNames, name, &KindName::text);
    if (other != otherKindNames.end()) return other->category;
    return std::nullopt;
}

/// "images" is "image", "directories" "directory".
std::string singular(std::string_view name) {
    if (name.ends_with("ies")) return std::string(name.substr(0, name.size() - 3)) + "y";
    return std::string(name.substr(0, name.size() - (name.ends_with('s') ? 1 : 0)));
}

Condition kindCondition(std::string_view value) {
    FindQueryNode node{.kind = Kind::kind};
    const std::string lower = lowercased(value);
    const auto parts = listed(lower);
    if (parts.empty()) return std::nullopt;
    for (const std::string_view name : parts) {
        auto category = categoryNamed(name);
        if (!category) category = categoryNamed(singular(name));
        if (name == "file" || name == "files") {
            node.mayBeFile = true;
        } else if (!category) {
            return std::nullopt;
        } else if (*category == FindCategory::folder) {
            node.mayBeFolder = true;
        } else if (std::ranges::find(node.categories, *category) == node.categories.end()) {
            node.categories.push_back(*category);
        }
    }
    return node;
}

/// Sizes, dates and depths are never below 0.
Condition spanCondition(Kind kind, std::optional<FindSpan> span) {
    if (!span) return std::nullopt;
    FindQueryNode node{.kind = kind};
    if (span->max < 0 || span->min > span->max) {
        node.min = 1;
        node.max = 0;
        return node;
    }
    node.min = static_cast<std::uint64_t>(std::max<std::int64_t>(span->min, 0));
    if (span->max != FindSpan::highest) node.max = static_cast<std::uint64_t>(span->max);
    return node;
}

Condition folderCondition(Kind kind, std::string_view value) {
    if (value.empty()) return std::nullopt;
    const bool isInHome = value == "~" || value.starts_with("~/");
    const std::string path = isInHome ? platform::homeFolder().path() + std::string(value.substr(1))
                                      : std::string(value);
    return FindQueryNode{.kind = kind, .names = {path::standardized(path)}};
}

Condition factCondition(Kind kind, std::string_view value) {
    FindQueryNode fact{.kind = kind};
    if (value.empty() || isFieldName(value, "yes") || isFieldName(value, "true")) return fact;
    if (!isFieldName(value, "no") && !isFieldName(value, "false")) return std::nullopt;
    return FindQueryNode{.kind = Kind::none, .children = {fact}};
}

/// "folder:" alone, with yes or no, or with a text that names have to hold.
Condition switchCondition(FindQueryNode kind, std::string_view value) {
    if (value.empty() || isFieldName(value, "yes") || isFieldName(value, "true")) return kind;
    if (isFieldName(value, "no") || isFieldName(value, "false")) {
        return FindQueryNode{.kind = Kind::none, .children = {std::move(kind)}};
    }
    return FindQueryNode{.kind = Kind::all,
                         .children = {std::move(kind), textWithAlternatives(value, {})}};
}

struct Field {
    std::string_view name;
    std::string_view takes; ///< for people
    Condition (*read)(std::string_view value, Timestamp now);
    bool isCostly = false;
};

constexpr std::array<Field, 13> fields{{
    {"ext", "extensions such as jpg;png",
     [](std::string_view value, Timestamp) { return extensionCondition(value); }},
    {"kind", "a kind such as image, document or folder",
     [](std::string_view value, Timestamp) { return kindCondition(value); }},
    {"type", "a kind such as image, document or folder",
     [](std::string_view value, Timestamp) { return kindCondition(value); }},
    {"file", "yes, no or a text",
     [](std::string_view value, Timestamp) {
         return switchCondition({.kind = Kind::kind, .mayBeFile = true}, value);
     }},
    {"folder", "yes, no or a text",
     [](std::string_view value, Timestamp) {
         return switchCondition({.kind = Kind::kind, .mayBeFolder = true}, value);
     }},
    {"size", "a size such as >10mb or 1gb..2gb",
     [](std::string_view value, Timestamp) { return spanCondition(Kind::size, sizeSpan(value)); }},
    {"dm", "a date such as today, 7d, 2026-11 or >2026-01-15",
     [](std::string_view value, Timestamp now) {
         return spanCondition(Kind::date, dateSpan(value, now));
     }},
    {"depth", "a depth such as 2, <3 or 1..4",
     [](std::string_view value, Timestamp) {
         return spanCondition(Kind::depth, depthSpan(value));
     }},
    {"in", "a folder",
     [](std::string_view value, Timestamp) { return folderCondition(Kind::folder, value); }, true},
    {"parent", "a folder",
     [](std::string_view value, Timestamp) { return folderCondition(Kind::parent, value); }, true},
    {"empty", "yes or no",
     [](std::string_view value, Timestamp) { return factCondition(Kind::empty, value); }},
    {"hidden", "yes or no",
     [](std::string_view value, Timestamp) { return factCondition(Kind::hidden, value); }},
    {"system", "yes or no",
     [](std::string_view value, Timestamp) { return factCondition(Kind::system, value); }},
}};

/// Whether people mean a field by what stands before a colon. "C:", "12:30", "http://" and
/// "File::Spec" are none.
bool looksLikeField(std::string_view name, std::string_view value) {
    const auto isLetter = [](char byte) {
        return lowerASCII(byte) >= 'a' && lowerASCII(byte) <= 'z';
    };
    return name.size() > 1 && std::ranges::all_of(name, isLetter) && !value.starts_with("//");
}

std::size_t countTexts(const FindQueryNode& node) {
    std::size_t count = node.kind == Kind::text ? 1 : 0;
    for (const FindQueryNode& child : node.children) count += countTexts(child);
    return count;
}

/// A word as it stands in a sentence: short, and harmless to a terminal.
std::string quoted(std::string_view text) {
    constexpr std::size_t maxBytes = 40;
    if (text.size() <= maxBytes) return terminalSafe(text);
    std::size_t end = maxBytes;
    while (end > 0 && (text[end] & 0xC0) == 0x80) --end;
    return terminalSafe(text.substr(0, end)) + "...";
}

} // namespace

Condition FindConditions::condition(const FindQueryToken& word) {
    if (wordCount_ >= maxWords) {
        if (!problem_) {
            problem_ = fmt::format("More than {} words are too many; the others were passed over.",
                                   maxWords);
        }
        return std::nullopt;
    }
    auto condition = fieldCondition(word);
    if (!condition) condition = wordCondition(word);
    wordCount_ += std::max<std::size_t>(countTexts(*condition), 1); // alternatives are many words
    return condition;
}

FindQueryNode FindConditions::wordCondition(const FindQueryToken& word) {
    const bool isQuoted = word.unquoted < word.text.size();
    FindQueryNode node = textWithAlternatives(word.text, {.isQuoted = isQuoted});
    FindTextTerm& term = node.text;
    term.mayBeInFolder = node.kind == Kind::text && !isQuoted &&
                         term.mode == FindTextMode::contains && !term.isInPath &&
                         !term.isCaseSensitive;
    return node;
}

Condition FindConditions::fieldCondition(const FindQueryToken& word) {
    const std::size_t colon = word.text.find(':');
    if (colon == std::string::npos || colon >= word.unquoted) return std::nullopt;
    const std::string_view name = std::string_view(word.text).substr(0, colon);
    std::string_view value = std::string_view(word.text).substr(colon + 1);
    if (value.starts_with(':')) return std::nullopt; // "File::Spec" is a name
    std::string_view asked = name;
    std::string_view takes = "a text behind it";
    Condition condition;
    if (isTextFieldName(name)) {
        value = word.text;
        TextManner manner = textManner(value, word.unquoted);
        manner.isQuoted = word.unquoted < word.text.size();
        const bool isExpression = manner.mode == FindTextMode::regex;
        if (isExpression && !admitCostlyCondition()) return std::nullopt;
        if (isExpression) {
            asked = "regex";
            takes = "a regular expression that is not too large";
        }
        if (!value.empty()) {
            condition = isExpression ? expressionCondition(value, manner)
                                     : textWithAlternatives(value, manner);
        }
        if (isExpression && condition) ++costlyCount_;
    } else {
        const auto* field = std::ranges::find_if(
            fields, [name](const Field& known) { return isFieldName(name, known.name); });
        if (field == fields.end()) {
            if (looksLikeField(name, value) && !problem_) {
                problem_ = fmt::format("\"{}\" was taken for a word; there is no field {}:.",
                                       quoted(word.text), quoted(name));
            }
            return std::nullopt;
        }
        if (field->isCostly && !admitCostlyCondition()) return std::nullopt;
        takes = field->takes;
        condition = field->read(value, now_);
        if (field->isCostly && condition) ++costlyCount_;
    }
    if (!condition && !problem_) {
        problem_ = fmt::format("\"{}\" was taken for a word; {}: takes {}.", quoted(word.text),
                               lowercased(asked), takes);
    }
    return condition;
}

bool FindConditions::admitCostlyCondition() {
    if (costlyCount_ < maxCostlyConditions) return true;
    if (!problem_) {
        problem_ = fmt::format("More than {} folders and regular expressions are too many; the "
                               "others were taken for words.",
                               maxCostlyConditions);
    }
    return false;
}

} // namespace tidyro
