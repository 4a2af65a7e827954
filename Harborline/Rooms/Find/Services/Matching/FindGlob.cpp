#include "Rooms/Find/Services/Matching/FindGlob.h"

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// Where the character after the one at `at` begins.
std::size_t nextCharacter(std::string_view text, std::size_t at) {
    const bool isASCII = (text[at] & 0x80) == 0;
    return at + (isASCII ? 1 : characterLength(text.substr(at)));
}

} // namespace

FindGlob::FindGlob(std::string_view pattern) {
    for (const char byte : pattern) {
        if (byte == '*' && pattern_.ends_with('*')) continue;
        pattern_ += byte;
        if (byte != '*') ++leastBytes_;
    }
}

bool FindGlob::matches(std::string_view text) const {
    if (text.size() < leastBytes_) return false;
    std::size_t inPattern = 0;
    std::size_t inText = 0;
    std::size_t afterStar = std::string::npos;
    std::size_t starTakes = 0; ///< the text that the last "*" stands for ends here
    while (inText < text.size()) {
        const char wanted = inPattern < pattern_.size() ? pattern_[inPattern] : '\0';
        const bool isOver = inPattern == pattern_.size();
        if (!isOver && wanted == '*') {
            afterStar = ++inPattern;
            starTakes = inText;
        } else if (!isOver && wanted == '?') {
            inText = nextCharacter(text, inText);
            ++inPattern;
        } else if (!isOver && wanted == text[inText]) {
            ++inText;
            ++inPattern;
        } else if (afterStar != std::string::npos) {
            starTakes = nextCharacter(text, starTakes);
            inText = starTakes;
            inPattern = afterStar;
        } else {
            return false;
        }
    }
    return inPattern == pattern_.size() ||
           (inPattern + 1 == pattern_.size() && pattern_[inPattern] == '*');
}

} // namespace tidyro
