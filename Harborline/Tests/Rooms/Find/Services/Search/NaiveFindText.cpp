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

/// One element of a glob: the bytes of a set, or one byte.
std::vector<std::string> globElements(std::string_view pattern, bool hasSets) {
    std::vector<std::string> elements;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        const std::size_t first = at + (pattern.substr(at + 1).starts_with('!') ? 2 : 1);
        const std::size_t close =
            first < pattern.size() ? pattern.find(']', first + 1) : std::string_view::npos;
        const bool isSet = hasSets && pattern[at] == '[' && close != std::string_view::npos;
        elements.emplace_back(pattern.substr(at, isSet ? close + 1 - at : 1));
        if (isSet) at = close;
    }
    return elements;
}

bool isInSet(std::string_view set, std::string_view character) {
    std::vector<std::string_view> members;
    for (std::string_view rest = set.substr(1, set.size() - 2); !rest.empty();) {
        members.push_back(firstCharacter(rest).bytes);
        rest.remove_prefix(members.back().size());
    }
    const bool isDenied = members.size() > 1 && members.front() == "!";
    bool isMember = false;
    for (std::size_t i = isDenied ? 1 : 0; i < members.size(); ++i) {
        const bool isRange = i + 2 < members.size() && members[i + 1] == "-";
        const std::string_view last = members[isRange ? i + 2 : i];
        isMember = isMember || (members[i] <= character && character <= last);
        if (isRange) i += 2;
    }
    return isMember != isDenied;
}

} // namespace

bool naiveGlob(std::string_view pattern, std::string_view text, bool hasSets) {
    // The offsets up to which the pattern so far can be all of the text.
    std::set<std::size_t> fits{0};
    for (const std::string& wanted : globElements(pattern, hasSets)) {
        std::set<std::size_t> longer;
        for (std::size_t at : fits) {
            if (wanted == "*") {
                // From what is there already, all that follows is.
                while (longer.insert(at).second && at < text.size()) {
                    at += firstCharacter(text.substr(at)).bytes.size();
                }
            } else if (at < text.size()) {
                const std::string_view one = firstCharacter(text.substr(at)).bytes;
                const bool isAny = wanted == "?" || (wanted.size() > 1 && isInSet(wanted, one));
                if (isAny) longer.insert(at + one.size());
                if (!isAny && wanted.size() == 1 && wanted.front() == text[at])
                    longer.insert(at + 1);
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
