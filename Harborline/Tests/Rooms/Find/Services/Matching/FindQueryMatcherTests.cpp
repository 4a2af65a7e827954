#include "Rooms/Find/Services/Matching/FindQueryMatcher.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Index/FindTrees.h"

namespace tidyro {
namespace {

using testing::indexOf;
using testing::Item;

/// The paths of what matches, in the order of the entries, parted by blanks and bars.
std::string found(const FindIndexStorage& storage, std::string_view query, Timestamp now = {}) {
    const FindQuery read = parsedFindQuery(query, now);
    FindEntrySet among(storage.count());
    for (std::uint32_t entry = 1; entry < storage.count(); ++entry) {
        if (!storage.isDeletedOrInside(entry)) among.add(entry);
    }
    std::string names;
    FindQueryMatcher(storage, read).matches(among).forEach([&](std::uint32_t entry) {
        names += names.empty() ? "" : " | ";
        names += path::below(storage.path(entry), storage.rootPath);
    });
    return names;
}

struct ExpectedMatches {
    std::string_view query;
    std::string_view found;
};

TEST(FindQueryMatcher, LooksForTextInEveryScript) {
    const FindIndexStorage storage = indexOf({{"Annual Report.pdf"},
                                              {"annual-report_draft.docx"},
                                              {"R\u00E9sum\u00E9.txt"},
                                              {"Re\u0301sume\u0301 OLD.txt"},
                                              {"IMG2026myPhoto.PNG"},
                                              {"XStra\u00DFe.MAP"},
                                              {"\u041E\u0442\u0447\u0451\u0442 2026.pdf"},
                                              {"\u66F8\u985E.txt"},
                                              {"\u05E9\u05DC\u05D5\u05DD.txt"},
                                              {"\U0001F389 party.gif"},
                                              {"\u0301"},
                                              {"bad\xFFname.txt"}});
    const ExpectedMatches table[] = {
        {"REPORT ann", "Annual Report.pdf | annual-report_draft.docx"},
        {"\"report annual\"", ""},
        {"report -draft", "Annual Report.pdf"},
        {"pdf -(report | 2026)", ""},
        {"resume\u0301", "R\u00E9sum\u00E9.txt | Re\u0301sume\u0301 OLD.txt"},
        {"case:Re", "Annual Report.pdf | Re\u0301sume\u0301 OLD.txt"},
        {"case:R\u00E9", "R\u00E9sum\u00E9.txt"},
        {"strasse", "XStra\u00DFe.MAP"},
        {"\u041E\u0422\u0427\u0415\u0422", "\u041E\u0442\u0447\u0451\u0442 2026.pdf"},
        {"\u985E", "\u66F8\u985E.txt"},
        {"\u05DC\u05D5", "\u05E9\u05DC\u05D5\u05DD.txt"},
        {"\U0001F389", "\U0001F389 party.gif"},
        {"\u0301", "Re\u0301sume\u0301 OLD.txt | \u0301"},
        {"bad\uFFFDn", "bad\xFFname.txt"},
        {"word:report", "Annual Report.pdf | annual-report_draft.docx"},
        {"word:ort", ""},
        {"word:2026 word:my word:photo word:img", "IMG2026myPhoto.PNG"},
        {"word:2026myphoto word:pho", ""},
        {"word:2026 word:\u043E\u0442\u0447\u0435\u0442",
         "\u041E\u0442\u0447\u0451\u0442 2026.pdf"},
        {"word:map word:xstrasse", "XStra\u00DFe.MAP"},
        {"word:resume word:old", "Re\u0301sume\u0301 OLD.txt"},
        {"word:name", "bad\xFFname.txt"},
        {"word:party", "\U0001F389 party.gif"},
        {"case:word:old | case:word:Report", "Annual Report.pdf"},
        {"exact:ANNUAL exact:\"annual report.pdf\"", ""},
        {"exact:\"annual report.pdf\"", "Annual Report.pdf"},
        {"*.PDF", "Annual Report.pdf | \u041E\u0442\u0447\u0451\u0442 2026.pdf"},
        {"??.txt", "\u66F8\u985E.txt"},
        {"r?sum*txt", "R\u00E9sum\u00E9.txt | Re\u0301sume\u0301 OLD.txt"},
        {"case:*.pNG", ""},
        {"a*t.p*d*f", "Annual Report.pdf"},
        {"\"* *.?i?\"", "\U0001F389 party.gif"},
        {"regex:^an+ual[\\s-]r", "Annual Report.pdf | annual-report_draft.docx"},
        {"case:regex:^an", "annual-report_draft.docx"},
        {"regex:^..\\.txt$", "\u66F8\u985E.txt"},
        {"regex:d.n", "bad\xFFname.txt"},
        {"ext:pdf;PNG",
         "Annual Report.pdf | IMG2026myPhoto.PNG | \u041E\u0442\u0447\u0451\u0442 2026.pdf"},
    };
    for (const auto& [query, names] : table) EXPECT_EQ(found(storage, query), names) << query;
    // Syllables are composed, the voicing of kana and the vowels of Devanagari stay.
    const FindIndexStorage others = indexOf({{"\u1112\u1161\u11AB\u1100\u1173\u11AF new"},
                                             {"\u30AB\u3099\u30B9 new"},
                                             {"\u0939\u093F\u0928\u094D\u0926\u0940 new"}});
    EXPECT_EQ(found(others, "word:\uD55C\uAE00"), "\u1112\u1161\u11AB\u1100\u1173\u11AF new");
    EXPECT_EQ(found(others, "word:\u30AC\u30B9"), "\u30AB\u3099\u30B9 new");
    EXPECT_EQ(found(others, "word:new -word:ne"), found(others, ""));
}

const std::vector<Item> sampleTree{{"docs/"},
                                   {"src/"},
                                   {".config/"},
                                   {"usr/"},
                                   {"Mail.app/"},
                                   {"docs/a.tar.gz", 5'000'000'000, 2'000'000'000},
                                   {"docs/empty.txt", 0},
                                   {"docs/hollow/"},
                                   {"docs/src/"},
                                   {"src/Lib/"},
                                   {"src/main.cpp", 999},
                                   {"src/Lib/main.cpp", 1'000},
                                   {"src/Lib/.gz", 0},
                                   {".config/main.json"},
                                   {"usr/bin", 20},
                                   {"docs/src/clip.mp4", 1}};

TEST(FindQueryMatcher, LooksAtPathsAndFacts) {
    const FindIndexStorage storage = indexOf(sampleTree);
    const ExpectedMatches table[] = {
        {"src/", "src/Lib | src/main.cpp | docs/src/clip.mp4 | src/Lib/main.cpp | src/Lib/.gz"},
        {"lib/MAIN", "src/Lib/main.cpp"},
        {"case:lib/main", ""},
        {"case:Lib/main", "src/Lib/main.cpp"},
        {"/src/main", "src/main.cpp"},
        {"path:lib", "src/Lib | src/Lib/main.cpp | src/Lib/.gz"},
        {"path:word:lib main", "src/Lib/main.cpp"},
        {"/home/ADA/src/m", "src/main.cpp"},
        {"/home/ada/rc", ""},
        {"src/*.cpp", "src/main.cpp | src/Lib/main.cpp"},
        {"rc/*.cpp", ""},
        {"/home/ada/src/m*", "src/main.cpp"},
        {"exact:src/main.cpp", "src/main.cpp"},
        {"exact:/home/ada/src/", "src"},
        {"path:regex:^src/[^/]*$", "src/Lib | src/main.cpp"},
        {"in:SRC", "src/Lib | src/main.cpp | docs/src/clip.mp4 | src/Lib/main.cpp | src/Lib/.gz"},
        {"in:docs/src", "docs/src/clip.mp4"},
        {"in:/home/ada/src", "src/Lib | src/main.cpp | src/Lib/main.cpp | src/Lib/.gz"},
        {"in:ada/src in:lib", "src/Lib/main.cpp | src/Lib/.gz"},
        {"in:rc | in:/src | in:main.cpp | parent:/home", ""},
        {"parent:src", "src/Lib | src/main.cpp | docs/src/clip.mp4"},
        {"parent:/home/ada kind:folder", "docs | src | .config | usr | Mail.app"},
        {"in:/home depth:1", "docs | src | .config | usr | Mail.app"},
        {"parent:. docs", "docs"},
        {"ext:gz;app", "Mail.app | docs/a.tar.gz"},
        {"ext:tar.gz", "docs/a.tar.gz"},
        {"kind:apps;videos", "Mail.app | docs/src/clip.mp4"},
        {"kind:file depth:<3 -kind:code", "docs/a.tar.gz | docs/empty.txt | usr/bin"},
        {"size:>4gb kind:file", "docs/a.tar.gz"},
        {"size:999..1kb kind:file", "src/main.cpp | src/Lib/main.cpp"},
        {"size:>5gb", "docs"},
        {"dm:>2026", "docs/a.tar.gz"},
        {"dm:1970-01 main.cpp", "src/main.cpp | src/Lib/main.cpp"},
        {"empty:", "Mail.app | docs/empty.txt | docs/hollow | src/Lib/.gz"},
        {"empty:no depth:1", "docs | src | .config | usr"},
        {"hidden:", ".config | .config/main.json | src/Lib/.gz"},
        {"system:yes", "usr | usr/bin"},
        {"depth:3", "docs/src/clip.mp4 | src/Lib/main.cpp | src/Lib/.gz"},
    };
    for (const auto& [query, names] : table) EXPECT_EQ(found(storage, query), names) << query;
}

TEST(FindQueryMatcher, PassesOverWhatIsDeleted) {
    FindIndexStorage storage = indexOf(sampleTree);
    storage.markDeleted(*storage.lookup("/home/ada/src/Lib"));
    storage.markDeleted(*storage.lookup("/home/ada/docs/src/clip.mp4"));
    EXPECT_EQ(found(storage, "main.cpp | clip | lib"), "src/main.cpp");
    EXPECT_EQ(found(storage, "empty: kind:folder"), "Mail.app | docs/hollow | docs/src");
    storage.flags[*storage.lookup("/home/ada/docs/hollow")] |= findflag::unread;
    EXPECT_EQ(found(storage, "empty: kind:folder"), "Mail.app | docs/src");
}

TEST(FindQueryMatcher, RanksTheRootWithoutAFolderAboveIt) {
    const FindIndexStorage storage = indexOf({{"report"}});
    const auto use = [&storage](std::string_view query) {
        const FindQuery read = parsedFindQuery(query, Timestamp());
        return FindQueryMatcher(storage, read).fit(0).folders;
    };
    EXPECT_EQ(use("ada home"), FindFolderUse::whole);
    EXPECT_EQ(use("ada elsewhere"), FindFolderUse::unmet);
}

TEST(FindQueryMatcher, RanksByTheFirstTextThatStandsForItself) {
    const FindIndexStorage storage = indexOf(
        {{"report"}, {"Report.pdf"}, {"reporting"}, {"my report"}, {"unreported"}, {"pdf"}});
    const auto ranks = [&storage](std::string_view query) {
        const FindQuery read = parsedFindQuery(query, Timestamp());
        const FindQueryMatcher matcher(storage, read);
        std::string digits;
        for (std::uint32_t entry = 1; entry < storage.count(); ++entry) {
            digits += std::to_string(static_cast<int>(matcher.fit(entry).rank));
        }
        return digits;
    };
    EXPECT_EQ(ranks("report x"), "012344");
    EXPECT_EQ(ranks("-pdf *.pdf path:x case:report"), "012344");
    EXPECT_EQ(ranks("report | pdf"), "012340");
    EXPECT_EQ(ranks("regex:report size:>0"), "444444");
}

TEST(FindQueryMatcher, TakesTimeThatGrowsWithTheTextOnly) {
    const std::string name(255, 'a');
    std::vector<std::string> paths;
    for (int i = 0; i < 100; ++i) paths.push_back(name.substr(0, 250) + std::to_string(i));
    std::vector<Item> items;
    for (const std::string& path : paths) items.push_back({path});
    const FindIndexStorage storage = indexOf(items);
    std::string stars;
    for (int i = 0; i < 120; ++i) stars += "a*";
    std::string words;
    for (int i = 0; i < 50'000; ++i) words += "a ";
    std::string folders;
    for (int i = 0; i < 10'000; ++i) folders += "in:a" + std::to_string(i) + "|";
    for (const std::string& query :
         {stars + "b", std::string(100'000, '?'), words, folders, std::string("regex:(a+a+)+b"),
          std::string("regex:(.*.*.*){30}b$"), std::string("regex:a.{200}b"),
          "word:" + name.substr(0, 100), "*" + std::string(100'000, 'a') + "/*"}) {
        const auto start = std::chrono::steady_clock::now();
        static_cast<void>(found(storage, query));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        EXPECT_LT(taken.count(), 3.0) << query.substr(0, 20);
    }
}

TEST(FindQueryMatcher, IsUsedAsItsHeaderSays) {
    FindIndex index;
    index.replace(
        indexOf({{"small.png", 1'000}, {"large.png", 2'000'000}, {"large.txt", 2'000'000}}), {});
    const auto storage = index.storage();
    const auto mask = index.mask(storage, {});
    const Timestamp now = {};
    const FindQuery query = parsedFindQuery("kind:image size:>1mb", now);
    const FindEntrySet matches = FindQueryMatcher(*storage, query).matches(*mask);
    EXPECT_EQ(matches.size(), 1U);
    EXPECT_TRUE(matches.has(2));
}

} // namespace
} // namespace tidyro
