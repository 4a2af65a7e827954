#include "Rooms/Find/Services/Search/FindRandomQueries.h"

#include <vector>

#include <re2/re2.h>

#include "Base/UnicodeText.h"

namespace tidyro::testing {

namespace {

std::string quotedIfNeeded(const std::string& text) {
    const bool isNeeded = text.find_first_of(" \t\n()|:-!") != std::string::npos;
    return isNeeded ? "\"" + text + "\"" : text;
}

} // namespace

std::string RandomQueries::piece() {
    if (random_.oneIn(6)) return anyStem(random_);
    // Pieces of one name are found together.
    if (name_.empty() || random_.oneIn(3)) name_ = tree_.storage().name(tree_.anyEntry());
    const std::string name = name_;
    const std::size_t count = characterCount(name);
    std::string chosen = random_.oneIn(8)
                             ? name
                             : charactersOf(name, random_.oneIn(3) ? 0 : random_.below(count + 1),
                                            1 + random_.below(5));
    if (random_.oneIn(4)) chosen = searchFolded(chosen);
    if (random_.oneIn(6)) chosen = inCapitals(chosen);
    return chosen.empty() ? "a" : chosen;
}

std::string RandomQueries::folderPiece() {
    const FindIndexStorage& storage = tree_.storage();
    const std::uint32_t inside = tree_.anyEntry();
    name_ = storage.name(inside);
    std::uint32_t folder = storage.parent[inside];
    if (folder != 0 && random_.oneIn(2)) folder = storage.parent[folder];
    const std::string name(storage.name(folder));
    if (random_.oneIn(2)) return name;
    const std::string part = charactersOf(name, random_.below(characterCount(name) + 1), 3);
    return part.empty() ? "a" : part;
}

std::string RandomQueries::words() {
    std::string made;
    for (std::uint32_t left = 1 + random_.below(3); left > 0; --left) {
        // A word of a folder beside one of something that it may hold.
        const bool isOfFolder = left > 1 && random_.oneIn(3);
        made += isOfFolder ? folderPiece() : piece();
        made += left > 1 ? " " : "";
    }
    return made;
}

std::string RandomQueries::glob() {
    const std::string text = piece();
    std::string made;
    for (std::size_t i = 0; i < characterCount(text); ++i) {
        made += (random_.oneIn(6) ? "*" : "") + charactersOf(text, i, 1);
    }
    const std::size_t at = random_.below(characterCount(made) + 1);
    const std::string end = charactersOf(made, at + 1, made.size());
    static const std::vector<std::string> sets{"[a-m]", "[!a-m0-9]", "[]x]", "[\u00E0-\u00FF]",
                                               "[e",    "{a,e}",     "{,e*}"};
    switch (random_.below(6)) {
    case 4: return charactersOf(made, 0, at) + random_.oneOf(sets) + end + "*";
    case 5: return "*" + random_.oneOf(sets) + "*" + (random_.oneIn(2) ? end : "");
    case 0: return "*" + made + "*";
    case 1: return made + "*";
    case 2: return "*" + charactersOf(made, 0, at) + "?" + end + "*";
    default: return charactersOf(made, 0, at) + "?" + end + (random_.oneIn(2) ? "*" : "");
    }
}

std::string RandomQueries::expression() {
    const std::string text = RE2::QuoteMeta(piece());
    switch (random_.below(8)) {
    case 0: return "^" + text;
    case 1: return text + "$";
    case 2: return text + ".*" + RE2::QuoteMeta(piece());
    case 3: return "(" + text + "|" + RE2::QuoteMeta(piece()) + ")";
    case 4: return "^.{1,4}$";
    case 5: return "[[:digit:]]+[^0-9]";
    case 6: return "\\p{Lu}\\p{M}?.";
    default: return text;
    }
}

std::string RandomQueries::path() {
    const std::string whole = tree_.storage().path(tree_.anyEntry());
    const std::size_t slash = random_.oneIn(3) ? 0 : whole.find('/', random_.below(whole.size()));
    std::string end = slash < whole.size() ? whole.substr(slash) : whole;
    if (random_.oneIn(2)) end.erase(0, 1);
    if (random_.oneIn(3)) end = charactersOf(end, 0, 1 + random_.below(characterCount(end) + 1));
    return end;
}

std::string RandomQueries::folder() {
    const FindIndexStorage& storage = tree_.storage();
    const std::uint32_t inside = tree_.anyEntry();
    const std::uint32_t folder = storage.parent[inside];
    switch (random_.below(6)) {
    case 0: return storage.path(folder);
    case 1: return searchFolded(storage.path(folder)) + "/";
    case 2: return storage.rootPath;
    case 3: return random_.oneIn(2) ? "/" : ".";
    default: {
        const std::string name(storage.name(folder));
        const std::uint32_t above = storage.parent[folder];
        const bool goesOn = folder != 0 && above != 0 && random_.oneIn(2);
        return folder == 0 ? "ada" : goesOn ? std::string(storage.name(above)) + "/" + name : name;
    }
    }
}

std::string RandomQueries::field() {
    static const std::vector<std::string> facts{"ext:txt;PDF",
                                                "ext:.gz,app",
                                                "ext:tar.gz",
                                                "ext:\u00E9",
                                                "kind:image",
                                                "kind:folders",
                                                "kind:file",
                                                "kind:apps;docs",
                                                "kind:music,code",
                                                "kind:archives",
                                                "size:0",
                                                "size:>1mb",
                                                "size:999..1kb",
                                                "size:>=4294967295",
                                                "size:<4gib",
                                                "size:>9eb",
                                                "size:>5gb",
                                                "dm:today",
                                                "dm:yesterday",
                                                "dm:thisweek",
                                                "dm:lastmonth",
                                                "dm:thisyear",
                                                "dm:2026-09",
                                                "dm:>2026-01-15",
                                                "dm:30d",
                                                "dm:>2w",
                                                "dm:2026-06-",
                                                "size:1kb+",
                                                "type:code",
                                                "file:",
                                                "folder:a",
                                                "a\\\"",
                                                "dm:<=2025",
                                                "dm:2026-01..2026-06",
                                                "depth:1",
                                                "depth:>2",
                                                "depth:2..3",
                                                "depth:255",
                                                "depth:<2",
                                                "empty:",
                                                "empty:no",
                                                "hidden:",
                                                "hidden:false",
                                                "system:yes",
                                                "system:no",
                                                "colour:red",
                                                "c:d",
                                                "size:big",
                                                "dm:someday",
                                                "kind:thing",
                                                "depth:x"};
    static const std::vector<std::string> manners{
        "case:",      "word:",      "exact:",      "path:",       "case:word:",
        "case:path:", "path:word:", "case:exact:", "path:exact:", "case:path:word:"};
    switch (random_.below(12)) {
    case 0:
    case 1: return "in:" + quotedIfNeeded(folder());
    case 2: return "parent:" + quotedIfNeeded(folder());
    case 3: return "regex:" + quotedIfNeeded(expression());
    case 4: return (random_.oneIn(2) ? "case:regex:" : "path:regex:") + expression();
    case 5: {
        const std::string manner = random_.oneOf(manners);
        const bool isInPath = manner.find("path") != std::string::npos;
        return manner + quotedIfNeeded(isInPath && random_.oneIn(2) ? path() : piece());
    }
    case 6: return random_.oneOf(manners) + quotedIfNeeded(anyStem(random_));
    case 7: return random_.oneOf(manners) + quotedIfNeeded(glob());
    default: return random_.oneOf(facts);
    }
}

std::string RandomQueries::condition(unsigned depth) {
    switch (random_.below(depth > 0 ? 16 : 13)) {
    case 0: return quotedIfNeeded(glob());
    case 1: return quotedIfNeeded(path());
    case 2: return quotedIfNeeded(path() + "*");
    case 3: return "\"" + piece() + "\"";
    case 4:
    case 5:
    case 6:
    case 7: return field();
    case 13: return "(" + alternatives(depth - 1) + ")";
    case 14: return "-(" + alternatives(depth - 1) + ")";
    case 15: return (random_.oneIn(2) ? "NOT " : "!") + condition(depth - 1);
    default: return quotedIfNeeded(piece());
    }
}

std::string RandomQueries::alternatives(unsigned depth) {
    static const std::vector<std::string> joints{" ", " ", " AND ", " OR ", " | ", " -", "|"};
    std::string made = condition(depth);
    for (std::uint32_t more = random_.below(3); more > 0; --more) {
        made += random_.oneOf(joints) + condition(depth);
    }
    return made;
}

std::string RandomQueries::malformed() {
    static const std::vector<std::string> signs{"(",    ")",     "\"",  "|",       "-", " OR ",
                                                " NOT", " AND ", ":",   "regex:[", "*", "?",
                                                "/",    "\xFF",  "in:", " "};
    std::string made = random_.oneIn(2) ? alternatives(1) : words();
    for (std::uint32_t more = 1 + random_.below(3); more > 0; --more) {
        made.insert(random_.below(made.size() + 1), random_.oneOf(signs));
    }
    return made;
}

std::string RandomQueries::query() {
    switch (random_.below(8)) {
    case 0:
    case 1: return words();
    case 2: return malformed();
    case 3: return field();
    default: return alternatives(2);
    }
}

} // namespace tidyro::testing
