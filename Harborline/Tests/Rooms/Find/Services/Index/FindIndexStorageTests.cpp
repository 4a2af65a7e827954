#include "Rooms/Find/Services/Index/FindIndexStorage.h"

#include <gtest/gtest.h>

#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Building/FindIndexBlock.h"
#include "Rooms/Find/Services/Index/FindTrees.h"

namespace tidyro {
namespace {

using testing::file;
using testing::folder;
using testing::listing;
using Entry = FindIndexStorage::Entry;

constexpr auto none = FindIndexStorage::none;

TEST(FindIndexStorage, KeepsWhatAListingSays) {
    FindIndexStorage storage("/");
    const Entry root = storage.appendRoot("/", 1);
    EXPECT_EQ(storage.appendBlock(root, {}), none);
    const Entry first = storage.appendBlock(
        root, listing({folder("usr"),
                       folder("home"),
                       file(".profile", 0xFFFF'FFFE),
                       {.name = "seen", .type = FindObjectType::file, .bsdFlags = 0x8000},
                       {.name = "tmp", .type = FindObjectType::symlink, .size = 0xFFFF'FFFF},
                       file("\u00DCbung.TXT", 0x1'0000'0000)}));
    EXPECT_EQ(first, 1U);
    using namespace findflag;
    const std::vector<unsigned> flags{
        findflag::folder, findflag::folder | system, findflag::folder, hidden, hidden, symlink,
        notASCII};
    EXPECT_EQ(std::vector<unsigned>(storage.flags.begin(), storage.flags.end()), flags);
    const std::vector<unsigned> kinds{1, 1, 1, 64, 64, 0, 2 | 128};
    EXPECT_EQ(std::vector<unsigned>(storage.kind.begin(), storage.kind.end()), kinds);
    EXPECT_EQ(storage.bigSizes.size(), 2U);
    EXPECT_EQ(storage.size(3), 0xFFFF'FFFEU);
    EXPECT_EQ(storage.size(5), 0xFFFF'FFFFU);
    EXPECT_EQ(storage.size(6), 0x1'0000'0000U);
    EXPECT_EQ(storage.path(6), "/\u00DCbung.TXT");
    EXPECT_EQ(storage.path(0), "/");
    EXPECT_EQ(storage.mtime[6], 7U);

    const Entry inside = storage.appendBlock(1, listing({folder("System"), folder("Mail.app")}));
    EXPECT_EQ(storage.flags[inside], findflag::folder | system) << "inherited, not by its name";
    EXPECT_EQ(storage.flags[inside + 1], findflag::folder | system | package);
    EXPECT_EQ(storage.category(inside + 1), FindCategory::app);
    EXPECT_EQ(storage.lookup("/usr/Mail.app"), inside + 1);
    EXPECT_EQ(storage.lookup("/usr/none"), std::nullopt);
    EXPECT_EQ(storage.lookup("/"), 0U);

    storage.aggregateFolderSizes();
    storage.aggregateFolderSizes();
    EXPECT_EQ(storage.size(0), 0xFFFF'FFFEULL + 0xFFFF'FFFFULL + 0x1'0000'0000ULL);
}

TEST(FindIndexStorage, KnowsWhenItsOffsetsWouldEnd) {
    // Names that are nowhere: room that nobody writes to takes no memory.
    FindIndexStorage storage("/r");
    storage.appendRoot("/r", 0);
    static_cast<void>(storage.names.appendUnset(0xFFFF'FFFF - 6));
    const auto roomFor = [&](std::string_view name) {
        FindIndexBlock block;
        block.begin({.flags = storage.flags[0], .marksSystemFolders = false});
        block.add(listing({file(name)}));
        return std::pair(storage.hasRoomFor(listing({file(name)})), block.hasRoomIn(storage));
    };
    EXPECT_EQ(roomFor("12345"), std::pair(true, true));
    EXPECT_EQ(roomFor("123456"), std::pair(false, false));
    storage.names.resize(1);
    static_cast<void>(storage.foldedNames.appendUnset(0xFFFF'FFFF - 7));
    EXPECT_EQ(roomFor("\xFF\xFF"), std::pair(true, true));
    EXPECT_EQ(roomFor("\xFF\xFF\xFF"), std::pair(false, false)) << "nine bytes when folded";
}

TEST(FindIndexStorage, CountsDepthUpTo255) {
    FindIndexStorage storage("/data/");
    EXPECT_EQ(storage.rootPath, "/data");
    EXPECT_FALSE(storage.marksSystemFolders);
    Entry at = storage.appendRoot("/data", 0);
    std::string path = "/data";
    for (int depth = 1; depth <= 300; ++depth) {
        at = storage.appendBlock(at, listing({folder(depth == 2 ? ".h" : "d")}));
        path += depth == 2 ? "/.h" : "/d";
        EXPECT_EQ(storage.depth[at], std::min(depth, 255));
        EXPECT_EQ(storage.is(at, findflag::hidden), depth >= 2);
    }
    EXPECT_EQ(storage.path(at), path);
    EXPECT_EQ(storage.lookup(path), at);
    EXPECT_EQ(storage.lookup("/dat"), std::nullopt);
    EXPECT_FALSE(storage.isDeletedOrInside(at));
    storage.markDeleted(5);
    EXPECT_TRUE(storage.isDeletedOrInside(at));
    EXPECT_EQ(storage.lookup(path), std::nullopt);
}

TEST(FindIndexStorage, FoldsPlainRunsAndOtherNamesAlike) {
    const std::vector<std::string> names{"README.md",
                                         "@[`{Zz",
                                         "Re\u0301sume\u0301",
                                         "\u0301",
                                         "",
                                         "\xC3",
                                         "STRASSE stra\u00DFe",
                                         "\u0130\u03A3",
                                         "\u0915\u093F",
                                         "\u304C",
                                         std::string(300, 'A'),
                                         "\u212B.TXT",
                                         "x"};
    FindIndexStorage storage("/r");
    storage.appendRoot("/r", 0);
    std::vector<testing::Listed> entries;
    for (const std::string& name : names) entries.push_back(file(name));
    storage.appendBlock(0, listing(entries));
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(storage.foldedName(static_cast<Entry>(i + 1)), searchFolded(names[i]));
    }
    EXPECT_EQ(storage.foldedName(3), "resume");
    EXPECT_EQ(storage.foldedName(4), "") << "only marks";
    EXPECT_EQ(storage.foldedName(6), "\uFFFD");
    EXPECT_EQ(storage.foldedName(7), "strasse strasse");
    EXPECT_EQ(storage.foldedName(8), "i\u03C3");
    EXPECT_EQ(storage.foldedName(9), "\u0915\u093F") << "a vowel, not an accent";
    EXPECT_EQ(storage.foldedName(10), "\u304C") << "another letter, not an accent";
    EXPECT_EQ(storage.foldedName(12), "a.txt");
    EXPECT_EQ(storage.foldedEntries.size(), storage.count());
}

TEST(FindExtensions, KnowsPackages) {
    EXPECT_TRUE(FindExtensions::isPackage("Mail.APP"));
    EXPECT_FALSE(FindExtensions::isPackage("Mail"));
}

} // namespace
} // namespace tidyro
