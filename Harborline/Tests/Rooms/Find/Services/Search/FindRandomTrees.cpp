#include "Rooms/Find/Services/Search/FindRandomTrees.h"

#include <algorithm>
#include <set>
#include <vector>

namespace tidyro::testing {

namespace {

constexpr std::array stems{"readme",
                           "Report",
                           "IMG",
                           "photo",
                           "PhotoBooth",
                           "myPhoto",
                           "a",
                           "ab",
                           "aa",
                           "z",
                           "x1",
                           "2026",
                           "notes",
                           "lib",
                           "Library",
                           "Stra\u00DFe", // folds to more letters
                           "R\u00E9sum\u00E9",
                           "Re\u0301sume\u0301", // composed and not
                           "\u0130stanbul",
                           "\uFB01le",
                           "\u212Bngstr\u00F6m", // letters that fold to several, or to others
                           "\u039B\u03CC\u03B3\u03BF\u03C2",
                           "\u039B\u039F\u0393\u039F\u03A3", // two sigmas
                           "\u041E\u0442\u0447\u0451\u0442",
                           "\u043E\u0442\u0447\u0435\u0442", // io with and without dots
                           "\uD55C\uAE00",
                           "\u1112\u1161\u11AB\u1100\u1173\u11AF", // syllables and letters
                           "\u30AC\u30B9",
                           "\u30AB\u3099\u30B9",
                           "\u30AB\u30B9",
                           "\u66F8\u985E", // voiced, not voiced
                           "\u0645\u064E\u0644\u064E\u0641",
                           "\u0645\u0644\u0641", // vowels are marks
                           "\u05E9\u05C1\u05B8\u05DC\u05D5\u05DD",
                           "\u05E9\u05DC\u05D5\u05DD",
                           "\u0E17\u0E35\u0E48\u0E19\u0E35\u0E48",
                           "\u0939\u093F\u0928\u094D\u0926\u0940",
                           "\U0001F389",
                           "\U0001F468\u200D\U0001F469\u200D\U0001F467",
                           "\u0301",
                           "\u0301\u0323",
                           "\xFF",
                           "\xC3",
                           "\x80\x80",
                           "a\nb",
                           "a\tb",
                           "(2)",
                           "\"q\"",
                           "c:d",
                           "OR",
                           "-x",
                           "~",
                           "*",
                           "?"};
constexpr std::array separators{"", "7", " ", "-", "_", ".", "", "  ", "\u3000", "+"};
constexpr std::array extensions{".txt", ".TXT", ".pdf",    ".jpg", ".tar.gz", ".cpp",
                                ".mp4", ".",    ".\u00E9", ".app", ".zip",    ".mp3"};
constexpr std::array placeNames{"bin", "docs", ".cache", "node_modules", "src", "home", ".x"};
constexpr std::array systemNames{"System", "Library", "usr", "tmp", "var"};
constexpr std::array<std::uint64_t, 10> sizes{
    0, 0, 1, 999, 1'000, 1'048'576, 0xFFFF'FFFE, 0xFFFF'FFFF, 5'000'000'000, 0x9000'0000'0000'0000};

constexpr std::size_t maxNameLength = 255;

bool beginsCharacter(char byte) { return (byte & 0xC0) != 0x80; }

} // namespace

std::string anyStem(RandomSource& random) { return random.oneOf(stems); }

std::string inCapitals(std::string text) {
    for (char& byte : text) {
        if (byte >= 'a' && byte <= 'z') byte = static_cast<char>(byte - ('a' - 'A'));
    }
    return text;
}

std::size_t characterCount(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, beginsCharacter));
}

std::string charactersOf(std::string_view text, std::size_t from, std::size_t count) {
    std::string chosen;
    std::size_t at = 0; // characters that began
    for (const char byte : text) {
        if (beginsCharacter(byte)) ++at;
        if (at > from && at <= from + count) chosen += byte;
    }
    return chosen;
}

RandomTree::RandomTree(RandomSource& random, const Options& options)
    : random_(random), storage_(options.rootPath) {
    storage_.marksSystemFolders = true;
    storage_.appendRoot(options.rootPath, 0);
    std::vector<std::uint32_t> folders{0}; // that nothing was put into
    const std::size_t maxCount = std::max<std::size_t>(8, options.entries / 40);
    while (storage_.count() < options.entries) {
        const bool isFresh = !folders.empty();
        const std::size_t at = isFresh ? random_.below(folders.size()) : 0;
        const std::uint32_t folder = isFresh ? folders[at] : anyFolder();
        const FindDirectoryListing inside = listing(folder, maxCount);
        const std::uint32_t first = isFresh ? storage_.appendBlock(folder, inside)
                                            : storage_.appendLooseChildren(folder, inside);
        if (first == FindIndexStorage::none) continue;
        if (isFresh) folders.erase(folders.begin() + static_cast<std::ptrdiff_t>(at));
        for (std::uint32_t entry = first; entry < storage_.count(); ++entry) {
            if (storage_.is(entry, findflag::folder)) folders.push_back(entry);
        }
    }
    std::uint32_t deep = folders.empty() || !options.isDeep ? 0 : folders.front();
    for (int i = 0; i < 260 && deep != 0; ++i) {
        FindDirectoryListing one;
        one.append({.name = i % 50 == 0 ? "aa" : "z", .type = FindObjectType::directory});
        deep = storage_.appendBlock(deep, one);
    }
    storage_.aggregateFolderSizes();
}

std::string RandomTree::name(bool isFolder) {
    std::string made;
    for (std::uint32_t parts = 1 + random_.below(3); parts > 0; --parts) {
        const std::string stem = anyStem(random_);
        made += random_.oneIn(5) ? inCapitals(stem) : stem;
        if (parts > 1) made += random_.oneOf(separators);
    }
    if (random_.oneIn(60)) {
        while (made.size() < maxNameLength) made += made;
        made.resize(maxNameLength); // which may cut a character
    }
    if (random_.oneIn(12)) made.insert(0, ".");
    if (isFolder ? random_.oneIn(8) : !random_.oneIn(4)) {
        made += isFolder ? ".app" : random_.oneOf(extensions);
    }
    if (made.size() > maxNameLength) made.resize(maxNameLength);
    return made;
}

FindDirectoryListing RandomTree::listing(std::uint32_t folder, std::size_t maxCount) {
    FindDirectoryListing made;
    std::set<std::string> names;
    for (std::size_t left = random_.below(maxCount + 1); left > 0; --left) {
        const bool isFolder = random_.oneIn(3);
        std::string chosen = folder == 0 && isFolder && random_.oneIn(2)
                                 ? random_.oneOf(systemNames)
                                 : name(isFolder);
        if (isFolder && random_.oneIn(5)) chosen = random_.oneOf(placeNames);
        if (storage_.child(folder, chosen) || chosen == "." || chosen == "..") continue;
        if (!names.insert(chosen).second) continue;
        const auto type = isFolder            ? FindObjectType::directory
                          : random_.oneIn(10) ? FindObjectType::symlink
                                              : FindObjectType::file;
        std::uint32_t flags = random_.oneIn(15) ? FindDirectoryListing::hiddenFlag : 0;
        if (random_.oneIn(5)) flags |= FindDirectoryListing::programFlag;
        const std::uint32_t age = random_.oneIn(3) ? 0 : random_.below(400) * 86'400;
        made.append({.name = chosen,
                     .type = type,
                     .size = random_.oneOf(sizes),
                     .mtime = random_.oneIn(20) ? 0xFFFF'FFFF : randomTreeNow - age,
                     .bsdFlags = flags});
    }
    return made;
}

std::uint32_t RandomTree::anyEntry() {
    for (int tries = 0; tries < 10'000; ++tries) {
        const std::uint32_t entry = 1 + random_.below(storage_.count() - 1);
        if (!storage_.isDeletedOrInside(entry)) return entry;
    }
    return 1; // all is deleted
}

std::uint32_t RandomTree::anyFolder() {
    if (random_.oneIn(5)) return 0;
    std::uint32_t entry = anyEntry();
    while (!storage_.is(entry, findflag::folder)) entry = storage_.parent[entry];
    return entry;
}

void RandomTree::change() {
    switch (random_.below(4)) {
    case 0: storage_.markDeleted(anyEntry()); break;
    case 1: {
        const std::uint32_t folder = anyFolder();
        storage_.appendLooseChildren(folder, listing(folder, 6));
        break;
    }
    default: {
        // Some of what the folder holds stays, and new things come.
        const std::uint32_t folder = anyFolder();
        FindDirectoryListing now = listing(folder, 6);
        for (const std::uint32_t child : storage_.children(folder)) {
            if (storage_.is(child, findflag::deleted) || random_.oneIn(4)) continue;
            const bool isFolder = storage_.is(child, findflag::folder);
            now.append({.name = storage_.name(child),
                        .type = isFolder ? FindObjectType::directory : FindObjectType::file,
                        .size = random_.oneOf(sizes),
                        .mtime = randomTreeNow - random_.below(1'000'000),
                        .bsdFlags = random_.oneIn(9) ? FindDirectoryListing::hiddenFlag : 0});
        }
        storage_.replaceChildren(folder, now);
    }
    }
}

void RandomTree::compact() {
    storage_ = storage_.compacted();
    while (storage_.count() < 2) storage_.appendLooseChildren(0, listing(0, 6));
}

} // namespace tidyro::testing
