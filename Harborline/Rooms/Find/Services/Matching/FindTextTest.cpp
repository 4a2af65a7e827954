#include "Rooms/Find/Services/Matching/FindTextTest.h"

#include <algorithm>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Matching/FindWordBoundaries.h"

namespace tidyro {

namespace {

/// Where the character after the one at `at` begins.
std::size_t nextCharacter(std::string_view text, std::size_t at) {
    const bool isASCII = (text[at] & 0x80) == 0;
    return at + (isASCII ? 1 : characterLength(text.substr(at)));
}

/// Whether a character is among those of a set, "[a-z]". Characters of UTF-8 have the order of
/// their bytes.
bool isInSet(std::string_view set, std::string_view character) {
    std::string_view members = set.substr(1, set.size() - 2);
    const bool isDenied = members.starts_with('!') && members.size() > 1;
    if (isDenied) members.remove_prefix(1);
    const auto take = [&members] {
        const std::string_view first = members.substr(0, nextCharacter(members, 0));
        members.remove_prefix(first.size());
        return first;
    };
    bool isMember = false;
    while (!members.empty()) {
        const std::string_view from = take();
        const bool isRange = members.size() > 1 && members.front() == '-';
        if (isRange) members.remove_prefix(1);
        const std::string_view to = isRange ? take() : from;
        isMember = isMember || (from <= character && character <= to);
    }
    return isMember != isDenied;
}

} // namespace

FindGlob::FindGlob(std::string_view pattern, Sets sets) : sets_(sets) {
    for (std::size_t at = 0; at < pattern.size();) {
        const std::size_t end = sets == Sets::none ? 0 : globSetEnd(pattern, at);
        const std::string_view part = pattern.substr(at, end == 0 ? 1 : end - at);
        at += part.size();
        if (part == "*" && pattern_.ends_with('*')) continue;
        pattern_ += part;
        if (part != "*") ++minBytes_;
    }
}

bool FindGlob::isMatchedBy(std::string_view text) const {
    if (text.size() < minBytes_) return false;
    std::size_t inPattern = 0;
    std::size_t inText = 0;
    std::size_t afterStar = std::string::npos;
    std::size_t starTakes = 0; ///< the text that the last "*" stands for ends here
    while (inText < text.size()) {
        const char wanted = inPattern < pattern_.size() ? pattern_[inPattern] : '\0';
        const bool isOver = inPattern == pattern_.size();
        const std::size_t set = isOver ? 0 : setEnd(inPattern);
        const std::size_t next = nextCharacter(text, inText);
        if (!isOver && wanted == '*') {
            afterStar = ++inPattern;
            starTakes = inText;
        } else if (!isOver && wanted == '?') {
            inText = next;
            ++inPattern;
        } else if (set != 0 &&
                   isInSet(std::string_view(pattern_).substr(inPattern, set - inPattern),
                           text.substr(inText, next - inText))) {
            inText = next;
            inPattern = set;
        } else if (!isOver && set == 0 && wanted == text[inText]) {
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

namespace {

FindGlob::Sets setsOf(const FindTextTerm& term) {
    return term.hasSets ? FindGlob::Sets::inBrackets : FindGlob::Sets::none;
}

} // namespace

FindTextTest::FindTextTest(const FindTextTerm& term, std::string_view rootPath)
    : term_(term),
      needle_(term.isCaseSensitive ? term.text : term.folded),
      glob_("", FindGlob::Sets::none) {
    if (term.isInPath) adaptToPaths(rootPath);
    if (term.mode == FindTextMode::glob) glob_ = FindGlob(needle_, setsOf(term));
}

void FindTextTest::adaptToPaths(std::string_view root) {
    const std::string start = term_.isCaseSensitive ? std::string(root) : searchFolded(root);
    if (start != "/" && needle_.starts_with('/') && path::isInsideOrEqual(needle_, start)) {
        isAtBeginning_ = true;
        needle_.erase(0, start.size());
        if (needle_.empty()) needle_ = "/";
    }
    if (term_.mode == FindTextMode::exact) {
        if (!needle_.starts_with('/')) needle_.insert(0, 1, '/');
        if (needle_.size() > 1 && needle_.ends_with('/')) needle_.pop_back();
    }
    if (term_.mode == FindTextMode::glob && !isAtBeginning_) {
        needle_.insert(0, needle_.starts_with('/') || needle_.starts_with('*') ? "*" : "*/");
    }
}

bool FindTextTest::isMetBy(const FindSubject& subject) const {
    const std::string_view text = term_.isCaseSensitive ? subject.own : subject.folded;
    switch (term_.mode) {
    case FindTextMode::contains: return isIn(text);
    case FindTextMode::word: return isWordIn(subject, text);
    case FindTextMode::exact: return text == needle_;
    case FindTextMode::glob: return glob_.isMatchedBy(text);
    case FindTextMode::regex: return term_.regex->isIn(subject.own.substr(term_.isInPath ? 1 : 0));
    }
    return false;
}

bool FindTextTest::isIn(std::string_view text) const {
    return isAtBeginning_ ? text.starts_with(needle_)
                          : text.find(needle_) != std::string_view::npos;
}

bool FindTextTest::isWordIn(const FindSubject& subject, std::string_view text) const {
    std::size_t at = text.find(needle_);
    if (at == std::string_view::npos) return false;
    const FindWordBoundaries boundaries(subject, term_.isCaseSensitive);
    for (; at != std::string_view::npos; at = text.find(needle_, at + 1)) {
        if (isAtBeginning_ && at != 0) return false;
        if (boundaries.isAt(at) && boundaries.isAt(at + needle_.size())) return true;
    }
    return false;
}

} // namespace tidyro
