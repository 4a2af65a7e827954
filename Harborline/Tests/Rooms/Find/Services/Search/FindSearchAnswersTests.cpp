// What the search answers to named questions: the order of hits, cut-short searches, queries that
// nobody means well.
#include <chrono>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Rooms/Find/Services/Index/FindTrees.h"
#include "Rooms/Find/Services/Search/FindRandomTrees.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

namespace tidyro {
namespace {

using testing::indexOf;
using testing::Item;

/// The paths of the hits, the best first, parted by blanks and bars.
std::string hitsOf(const FindIndex& index, std::string_view query, std::size_t limit = 500) {
    FindSearchEngine engine;
    const auto result = engine.search(query, {.in = index, .limit = limit, .now = Timestamp()});
    const auto storage = index.storage();
    std::string paths;
    for (const std::uint32_t hit : result.hits) {
        paths += (paths.empty() ? "" : " | ");
        paths += path::below(storage->path(hit), storage->rootPath);
    }
    return paths;
}

struct ExpectedAnswer {
    std::string_view query;
    std::string_view paths;
};

TEST(FindSearchEngine, PutsWhatIsMeantFirst) {
    FindIndex index;
    index.replace(indexOf({{.path = "docs/"},
                           {.path = "docs/old/"},
                           {.path = "docs/old/report"},
                           {.path = "docs/REPORT"},
                           {.path = "unreported"},
                           {.path = "2report"},
                           {.path = "\u00FCReport"},
                           {.path = "\u00FC report.txt"},
                           {.path = "my-report"},
                           {.path = "myReport"},
                           {.path = "REPORTReport"},
                           {.path = "report.tar.gz"},
                           {.path = "reporting"},
                           {.path = ".report"},
                           {.path = "report."},
                           {.path = "docs/report.c"},
                           {.path = "Report.pdf", .mtime = 5},
                           {.path = "report.txt", .mtime = 9},
                           {.path = "report"},
                           {.path = "same-b"},
                           {.path = "same-a"},
                           {.path = "Same-C"},
                           {.path = "docs/same-!"},
                           {.path = "same-d", .mtime = 0},
                           {.path = "R\u00C9SUM\u00C9 (old).doc"},
                           {.path = "re\u0301sume\u0301.doc"},
                           {.path = "Cover R\u00E9sum\u00E9"}}),
                  {});
    const ExpectedAnswer table[] = {
        // The name, with or without a dot before it; without its suffix; its beginning; a word of
        // it; anywhere.
        {"report", "report | .report | docs/REPORT | docs/old/report | "
                   "report.txt | Report.pdf | docs/report.c | "
                   "report. | reporting | REPORTReport | report.tar.gz | "
                   "myReport | my-report | \u00FC report.txt | "
                   "2report | \u00FCReport | unreported"},
        {"report.tar", "report.tar.gz"},
        // Then the length, the date, the path by its bytes, capitals first.
        {"same", "Same-C | same-a | same-b | same-d | docs/same-!"},
        {"RESUME", "re\u0301sume\u0301.doc | R\u00C9SUM\u00C9 (old).doc | Cover "
                   "R\u00E9sum\u00E9"},
        // By the first word; of alternatives by the better one; by nothing else.
        {"txt report", "report.txt | \u00FC report.txt"},
        {"report -doc (txt | gz)", "report.txt | report.tar.gz | \u00FC report.txt"},
        {"unreported | same-d", "same-d | unreported"},
        {"*report | re*g", "report | .report | 2report | myReport | \u00FCReport | my-report | "
                           "reporting | REPORTReport | docs/REPORT | docs/old/report"},
        {"word:report size:>0 ext:txt", "report.txt | \u00FC report.txt"},
    };
    for (const auto& [query, paths] : table) EXPECT_EQ(hitsOf(index, query), paths) << query;
    EXPECT_EQ(hitsOf(index, "report", 2), "report | .report");
    EXPECT_EQ(hitsOf(index, "report", 0), "");
}

TEST(FindSearchEngine, PutsPlacesOfPeopleBeforeThoseOfPrograms) {
    FindIndex index;
    index.replace(indexOf({{.path = "etc/"},
                           {.path = "etc/make"},
                           {.path = "home/"},
                           {.path = "home/ada/"},
                           {.path = "home/ada/notes/"},
                           {.path = "home/ada/notes/deep/"},
                           {.path = "home/ada/notes/deep/makefile.txt"},
                           {.path = "home/ada/.cache/"},
                           {.path = "home/ada/.cache/make"},
                           {.path = "home/ada/.config/"},
                           {.path = "home/ada/.config/make"},
                           {.path = "usr/"},
                           {.path = "usr/bin/"},
                           {.path = "usr/bin/make-first"},
                           {.path = "usr/include/"},
                           {.path = "usr/include/make"}},
                          "/"),
                  {});
    // A whole name in a cache comes behind the beginning of one among programs.
    EXPECT_EQ(hitsOf(index, "make"),
              "etc/make | home/ada/.config/make | usr/include/make | usr/bin/make-first | "
              "home/ada/notes/deep/makefile.txt | home/ada/.cache/make");
    // A path is ranked by what it ends with.
    EXPECT_EQ(hitsOf(index, "home/ada", 2), "home/ada | home/ada/notes");
    // The working folder only parts what is equal.
    FindSearchEngine engine;
    const auto storage = index.storage();
    const auto first = [&](std::string_view query, std::string_view folder) {
        const auto found =
            engine.search(query, {.in = index, .now = Timestamp(), .workingFolder = folder});
        return storage->path(found.hits.at(0));
    };
    EXPECT_EQ(first("make", "/home/ada/.cache"), "/etc/make");
    EXPECT_EQ(first("*-first | *.txt", "/home/ada/notes"), "/home/ada/notes/deep/makefile.txt");
    EXPECT_EQ(first("*-first | *.txt", "/gone"), "/usr/bin/make-first");
}

TEST(FindSearchEngine, PutsAProgramBeforeOtherFiles) {
    FindIndexStorage storage("/opt/tool");
    const auto root = storage.appendRoot("/opt/tool", 0);
    const auto program = [](std::string_view name) {
        auto listed = testing::file(name);
        listed.bsdFlags = FindDirectoryListing::programFlag;
        return listed;
    };
    storage.appendBlock(root, testing::listing({testing::file("run"), testing::folder("x")}));
    storage.appendBlock(2, testing::listing({program("run")}));
    FindIndex index;
    index.replace(storage, {});
    EXPECT_EQ(hitsOf(index, "run"), "x/run | run");
    // What becomes a program, or is none any more, is one at the next look.
    storage = *index.storage();
    storage.replaceChildren(2, testing::listing({testing::file("run")}));
    storage.replaceChildren(root, testing::listing({program("run"), testing::folder("x")}));
    index.update(storage, {});
    EXPECT_EQ(hitsOf(index, "run"), "run | x/run");
}

TEST(FindSearchEngine, LetsWordsStandForFolders) {
    FindIndex index;
    index.replace(indexOf({{.path = "bin/"},
                           {.path = "bin/bash"},
                           {.path = "bin/bashbug"},
                           {.path = "combine/"},
                           {.path = "combine/bash"},
                           {.path = "combine/deep/"},
                           {.path = "combine/deep/bash"},
                           {.path = "etc/"},
                           {.path = "etc/hosts"},
                           {.path = "etc/hosts/allow"},
                           {.path = "etc/fetch-hosts"},
                           {.path = "bash-in-a-bin"},
                           {.path = "old bin/"},
                           {.path = "old bin/bash.txt"}}),
                  {});
    const ExpectedAnswer table[] = {
        // All words in the name; then by the name, and folders whose whole name was typed first.
        {"bin bash", "bash-in-a-bin | bin/bash | combine/bash | combine/deep/bash | "
                     "bin/bashbug | old bin/bash.txt"},
        {"bash bin", "bash-in-a-bin | bin/bash | combine/bash | combine/deep/bash | "
                     "bin/bashbug | old bin/bash.txt"},
        {"etc hosts", "etc/fetch-hosts | etc/hosts"},
        {"deep combine bash", "combine/deep/bash"},
        {"etc allow", ""}, // what is listed in a file does not exist
        // One of the words is in the name. A single one is, as are quoted ones and globs.
        {"deep combine", "combine/deep"},
        {"deep", "combine/deep"},
        {"\"bin\" bash", "bash-in-a-bin"},
        {"bash \"bin\"", "bash-in-a-bin"},
        {"old *.txt", "old bin/bash.txt"},
        {"etc (allow | hosts)", "etc/fetch-hosts | etc/hosts"},
        {"bash -bin", "bin/bash | combine/bash | combine/deep/bash | old bin/bash.txt | "
                      "bin/bashbug"},
        {"bash -(deep bash)", "bin/bash | combine/bash | combine/deep/bash | old bin/bash.txt | "
                              "bash-in-a-bin | bin/bashbug"},
        // The root lies in folders as well.
        {"ada deep", "combine/deep"},
        {"ada etc hosts", "etc/hosts | etc/fetch-hosts"},
    };
    for (const auto& [query, paths] : table) EXPECT_EQ(hitsOf(index, query), paths) << query;
}

TEST(FindSearchEngine, TakesTheRootsOwnPathForTheBeginning) {
    FindIndex index;
    index.replace(indexOf({{.path = "src/"}, {.path = "b/"}, {.path = "b/src/"}}), {});
    const ExpectedAnswer table[] = {
        {"/home/ada/src", "src"},         {"path:exact:/home/ada/src/", "src"},
        {"/home/ada/s*", "src"},          {"path:word:/home/ada/src", "src"},
        {"/home/ada", "b | src | b/src"}, {"home/ada", ""},
    };
    for (const auto& [query, paths] : table) EXPECT_EQ(hitsOf(index, query), paths) << query;
}

TEST(FindSearchEngine, TakesEachByteThatIsNoTextForACharacter) {
    FindIndex index;
    index.replace(indexOf({{.path = "\x80\x80"}, {.path = "\xFF"}, {.path = "\xFF\x80z"}}), {});
    EXPECT_EQ(hitsOf(index, "case:?"), "\xFF");
    EXPECT_EQ(hitsOf(index, "case:??"), "\x80\x80");
    EXPECT_EQ(hitsOf(index, "case:*?z"), "\xFF\x80z");
}

TEST(FindSearchEngine, SaysWhenItWasCutShort) {
    testing::RandomSource random(7);
    testing::RandomTree tree(random, {.entries = 11'000});
    FindIndex index;
    index.replace(tree.storage(), {});
    FindSearchEngine engine;
    const auto ask = [&](FindSearchEngine& by, std::string_view query, CancelToken cancel) {
        return by.search(
            query, {.in = index, .limit = 7, .now = Timestamp(), .cancel = std::move(cancel)});
    };
    std::stop_source stopped;
    stopped.request_stop();
    for (int round = 0; round < 2; ++round) {
        for (const char* query :
             {"read", "e", "readme 2026", "regex:r.*e", "r*e | size:0", "", "/a"}) {
            FindSearchEngine fresh;
            const auto whole = ask(fresh, query, {});
            ASSERT_GT(whole.matchCount, 0) << query;
            EXPECT_FALSE(whole.wasCancelled) << query;
            FindSearchEngine other;
            EXPECT_TRUE(ask(other, query, stopped.get_token()).wasCancelled) << query;
            // Among the few hits before, all may be found before anybody looks.
            const auto cut = ask(engine, query, stopped.get_token());
            EXPECT_TRUE(cut.wasCancelled || cut == whole) << query;
            EXPECT_LE(cut.matchCount, whole.matchCount) << query;
            // Nothing of what was cut short stays with the engine.
            EXPECT_EQ(ask(engine, query, {}), whole) << query;
            EXPECT_EQ(ask(engine, query, {}), whole) << query;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(60)); // now with a filter
    }
}

TEST(FindSearchEngine, EndsAtOnceForAnIndexThatWasReplaced) {
    FindIndex index;
    FindSearchEngine engine;
    const auto ask = [&](std::optional<std::uint64_t> generation) {
        return engine.search("report", {.in = index, .generation = generation, .now = Timestamp()});
    };
    EXPECT_EQ(ask({}), FindSearchResult()); // nothing was built yet
    index.replace(indexOf({{.path = "report"}}), {});
    const std::uint64_t first = index.generation();
    EXPECT_EQ(ask(first).hits.size(), 1);
    index.update(indexOf({{.path = "report"}, {.path = "report 2"}}), {});
    EXPECT_EQ(ask(first).hits.size(), 2);
    index.replace(indexOf({{.path = "reports"}}), {});
    const FindSearchResult cutShort{.generation = index.generation(), .wasCancelled = true};
    EXPECT_EQ(ask(first), cutShort);
    EXPECT_EQ(ask(index.generation()).hits.size(), 1);
    EXPECT_EQ(ask({}).hits.size(), 1);
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string made;
    for (; count > 0; --count) made += text;
    return made;
}

/// An answer, and the seconds that it took.
std::pair<FindSearchResult, double> timed(const FindIndex& index, const std::string& query) {
    const auto start = std::chrono::steady_clock::now();
    FindSearchEngine engine;
    auto result = engine.search(query, {.in = index, .now = Timestamp()});
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return {std::move(result), taken.count()};
}

TEST(FindSearchEngine, AnswersMonstrousQueriesSoon) {
    std::vector<std::string> paths{"other.txt"};
    for (int i = 100; i < 150; ++i) paths.push_back(std::string(252, 'a') + std::to_string(i));
    std::vector<Item> items;
    for (const std::string& path : paths) items.push_back({.path = path});
    FindIndex index;
    index.replace(indexOf(items), {});
    struct Monster {
        std::string query;
        std::uint64_t matches;
        bool hasProblem = false;
    };
    const Monster monsters[] = {
        {.query = std::string(100'000, 'a'), .matches = 0},
        {.query = std::string(252, 'a'), .matches = 50},
        {.query = repeated("a ", 50'000), .matches = 50, .hasProblem = true},
        {.query = "a" + repeated("|zz", 30'000), .matches = 50, .hasProblem = true},
        {.query = "a" + repeated(" -z -q", 15'000), .matches = 50, .hasProblem = true},
        {.query = repeated("(", 10'000) + "a", .matches = 50, .hasProblem = true},
        {.query = repeated("(", 10'000) + "a" + repeated(")", 10'000),
         .matches = 50,
         .hasProblem = true},
        {.query = repeated("-(", 10'000) + "a" + repeated(")", 10'000),
         .matches = 50,
         .hasProblem = true},
        {.query = repeated(")", 10'000) + "a", .matches = 50, .hasProblem = true},
        {.query = repeated("-", 100'001) + "a", .matches = 1},
        {.query = repeated("\"", 99'999) + "a", .matches = 50, .hasProblem = true},
        {.query = repeated("*", 100'000), .matches = 51},
        {.query = repeated("*a", 100) + "*b", .matches = 0},
        {.query = repeated("a*", 100), .matches = 50},
        {.query = repeated("*a", 50'000), .matches = 0},
        {.query = "word:" + std::string(100, 'a'), .matches = 0},
        {.query = "regex:(a+a+)+b", .matches = 0},
        {.query = "regex:(a|aa)+$", .matches = 0},
        {.query = "regex:(.*.*.*){30}b$", .matches = 0},
        {.query = "regex:((a{1,90}){1,90}){1,90}b", .matches = 0, .hasProblem = true},
        {.query = "regex:" + repeated("(", 20'000), .matches = 0, .hasProblem = true},
        {.query = repeated("in:b ", 20'000), .matches = 0, .hasProblem = true},
        {.query = repeated("size:>0 ", 12'000), .matches = 51, .hasProblem = true},
        {.query = "regex:" + repeated("(.*)", 1'000), .matches = 51},
        {.query = "regex:(.{1,100}){1,10}z", .matches = 0, .hasProblem = true},
    };
    for (const Monster& monster : monsters) {
        const auto [result, seconds] = timed(index, monster.query);
        const std::string name = monster.query.substr(0, 20);
        EXPECT_EQ(result.matchCount, monster.matches) << name;
        EXPECT_EQ(result.problem.has_value(), monster.hasProblem)
            << name << ": " << result.problem.value_or("");
        EXPECT_LT(seconds, 3.0) << name;
    }
}

TEST(FindSearchEngine, LooksForNoMoreWordsThanPeopleType) {
    FindIndex index;
    index.replace(indexOf({{.path = "x7"}, {.path = "x255"}, {.path = "x256"}}), {});
    std::string query;
    for (int i = 0; i < 1'500; ++i) query += fmt::format("{}exact:x{}", i > 0 ? "|" : "", i);
    const auto [result, seconds] = timed(index, query);
    EXPECT_EQ(result.matchCount, 2);
    EXPECT_EQ(result.problem, "More than 256 words are too many; the others were passed over.");
}

TEST(FindSearchEngine, LetsGoOfAnIndexThatWasReplaced) {
    FindIndex index;
    index.replace(indexOf({{.path = "report"}}), {});
    FindSearchEngine engine;
    engine.prepare(index);
    const auto first = engine.search("report", {.in = index, .now = Timestamp()});
    EXPECT_EQ(first.generation, index.generation());
    const std::weak_ptr<const FindIndexStorage> before = index.storage();
    index.replace(indexOf({{.path = "other"}}), {});
    const auto second = engine.search("regex:o", {.in = index, .now = Timestamp()});
    EXPECT_GT(second.generation, first.generation);
    EXPECT_TRUE(before.expired());
}

TEST(FindSearchEngine, PreparesMonstrousExpressionsSoon) {
    FindIndex index;
    index.replace(indexOf({{.path = "aaa"}, {.path = "b"}}), {});
    // Preparing it takes the square of its length; it may be refused, and is a
    // word then.
    const auto [result, seconds] = timed(index, "regex:" + repeated("a?", 49'000));
    EXPECT_EQ(result.matchCount, result.problem ? 0 : 2);
    EXPECT_LT(seconds, 1.0);
}

TEST(FindSearchEngine, IsUsedAsItsHeaderSays) {
    FindIndex index;
    index.replace(indexOf({{"readme.md"}, {"other"}}), {});
    const Timestamp now = {};
    FindSearchEngine engine;
    const auto found = engine.search("readme", {.in = index, .limit = 500, .now = now});
    EXPECT_EQ(found.hits, std::vector<std::uint32_t>{1});
}

} // namespace
} // namespace tidyro
