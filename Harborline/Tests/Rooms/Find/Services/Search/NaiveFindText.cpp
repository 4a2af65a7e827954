// How the naive search looks at text: as a list of characters.
#include <set>

#include <utf8proc.h>

#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Search/NaiveFind.h"

namespace tidyro::testing {

namespace {

struct Character {
    std::string_view bytes; ///< one byte for what is no UTF-8
    utf8proc_int32_t codePoint = -1;
};

Character firstCharacter(std::string_view text) {
    Character first;
    const auto length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                         static_cast<utf8proc_ssize_t>(text.size()), &first.codePoint);
    first.bytes = text.substr(0, length > 0 ? static_cast<std::size_t>(length) : 1);
    return first;
}

enum class Sort : std::uint8_t { separator, small, capital, letter, digit, mark };

Sort sortOf(const Character& character) {
    if (character.codePoint < 0) return Sort::separator;
    const std::string_view category = utf8proc_category_string(character.codePoint);
    if (category == "Ll") return Sort::small;
    if (category == "Lu" || category == "Lt") return Sort::capital;
    switch (category.front()) {
    case 'L': return Sort::letter;
    case 'N': return Sort::digit;
    case 'M': return Sort::mark;
    default: return Sort::separator;
    }
}

/// Which offsets of a text are the ends of words.
std::vector<bool> wordEnds(std::string_view text) {
    std::vector<bool> ends(text.size() + 1, false);
    ends.front() = ends.back() = true;
    std::size_t at = 0;
    Sort before = Sort::separator;
    while (at < text.size()) {
        const Character character = firstCharacter(text.substr(at));
        const Sort sort = sortOf(character);
        if (sort != Sort::mark) {
            const bool isBesideSeparator = before == Sort::separator || sort == Sort::separator;
            const bool isCaseChange = before == Sort::small && sort == Sort::capital;
            const bool isDigitChange = (before == Sort::digit) != (sort == Sort::digit);
            if (isBesideSeparator || isCaseChange || isDigitChange) ends[at] = true;
            before = sort;
        }
        at += character.bytes.size();
    }
    return ends;
}

/// The same in what is left of the text when it is folded.
std::vector<bool> foldedWordEnds(std::string_view own, std::string_view folded) {
    const std::string text = repairedUTF8(own);
    const std::vector<bool> ownEnds = wordEnds(text);
    std::vector<bool> ends(folded.size() + 1, false);
    for (std::size_t at = 0; at <= text.size(); ++at) {
        if (ownEnds[at]) ends.at(searchFolded(text.substr(0, at)).size()) = true;
    }
    return ends;
}

} // namespace

bool naiveGlob(std::string_view pattern, std::string_view text) {
    const auto next = [text](std::size_t at) {
        return at + firstCharacter(text.substr(at)).bytes.size();
    };
    // The offsets up to which the pattern so far can be all of the text.
    std::set<std::size_t> fits{0};
    for (const char wanted : pattern) {
        std::set<std::size_t> longer;
        for (const std::size_t at : fits) {
            if (wanted == '*') {
                // From what is there already, all that follows is.
                std::size_t to = at;
                while (longer.insert(to).second && to < text.size()) to = next(to);
            } else if (at < text.size() && (wanted == '?' || wanted == text[at])) {
                longer.insert(wanted == '?' ? next(at) : at + 1);
            }
        }
        fits = longer;
        if (fits.empty()) return false;
    }
    return fits.contains(text.size());
}

bool naiveWord(std::string_view needle, const NaiveWordPlace& place) {
    const std::string_view text = place.inOwn ? place.own : place.folded;
    if (text.find(needle) == std::string_view::npos) return false;
    const std::vector<bool> ends =
        place.inOwn ? wordEnds(place.own) : foldedWordEnds(place.own, place.folded);
    for (std::size_t at = 0; at + needle.size() <= text.size(); ++at) {
        if (place.atBeginning && at > 0) return false;
        if (text.substr(at, needle.size()) == needle && ends[at] && ends[at + needle.size()]) {
            return true;
        }
    }
    return false;
}

} // namespace tidyro::testing
