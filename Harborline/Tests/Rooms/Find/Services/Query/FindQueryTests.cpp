#include "Rooms/Find/Services/Query/FindQuery.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {
namespace {

using Kind = FindQueryNode::Kind;

std::string shown(const FindTextTerm& term) {
    constexpr std::array<std::string_view, 5> modes{"", "word:", "exact:", "glob:", "regex:"};
    return fmt::format("{}{}{}'{}'", term.isCaseSensitive ? "case:" : "",
                       term.isInPath ? "path:" : "", modes.at(static_cast<std::size_t>(term.mode)),
                       term.isCaseSensitive || term.folded.empty() ? term.text : term.folded);
}

/// A tree as text: "all('a' any('b' size[1-2]))".
std::string shown(const FindQueryNode& node) {
    constexpr std::array<std::string_view, 14> names{"all",    "any",    "not",  "",      "ext",
                                                     "kind",   "size",   "date", "depth", "empty",
                                                     "hidden", "system", "in",   "parent"};
    if (node.kind == Kind::text) return shown(node.text);
    std::string inner;
    const auto add = [&inner](std::string_view text) {
        inner += inner.empty() ? "" : " ";
        inner += text;
    };
    for (const FindQueryNode& child : node.children) add(shown(child));
    for (const std::string& name : node.names) add(name);
    for (const FindCategory category : node.categories) add(rawValue(category));
    if (node.mayBeFile) add("file");
    if (node.mayBeFolder) add("folder");
    std::string text(names.at(static_cast<std::size_t>(node.kind)));
    if (node.kind >= Kind::size && node.kind <= Kind::depth) {
        const auto max = node.max == UINT64_MAX ? "" : fmt::format("{}", node.max);
        return text + fmt::format("[{}-{}]", node.min, max);
    }
    return node.kind >= Kind::empty && node.kind <= Kind::system ? text : text + "(" + inner + ")";
}

struct QueryReading {
    std::string_view query;
    std::string_view tree;
    bool hasProblem = false;
};

template <std::size_t Count>
void expectTrees(const QueryReading (&readings)[Count]) {
    for (const auto& [query, tree, hasProblem] : readings) {
        const FindQuery read = parsedFindQuery(query, Timestamp());
        EXPECT_EQ(shown(read.root), tree) << query;
        EXPECT_EQ(read.problem.has_value(), hasProblem)
            << query << ": " << read.problem.value_or("no problem");
    }
}

TEST(FindQuery, JoinsWordsAndBrackets) {
    expectTrees({
        {"", "all()"},
        {" \t ", "all()"},
        {"Café  LATTE", "all('cafe' 'latte')"},
        {"a AND b and", "all('a' 'b' 'and')"},
        {"a b | c OR d e", "all(any(all('a' 'b') 'c' all('d' 'e')))"},
        {"a|b", "all(any('a' 'b'))"},
        {"(a | b) (c d)", "all(any('a' 'b') 'c' 'd')"},
        {"a | (b | c)", "all(any('a' 'b' 'c'))"},
        {"-a !b NOT c a-b wow!", "all(not('a') not('b') not('c') 'a-b' 'wow!')"},
        {"-(a | b) --c NOT -d", "all(not(any('a' 'b')) 'c' 'd')"},
        {"NOT NOT a NOT b c", "all('a' not('b') 'c')"},
        {"Artist - Song", "all('artist' '-' 'song')"},
        {"\"a b\" x\"(y z)\" \"OR\" \"-q\" -\"r s\"", "all('a b' 'x(y z)' 'or' '-q' not('r s'))"},
        {"foo\u3000bar", "all('foo' 'bar')"},
        {"((((a))))()", "all('a')"},
        {"not or", "all('not' 'or')"},
        {"-\"\" a", "all('a')"},
    });
}

TEST(FindQuery, ReadsFields) {
    expectTrees({
        {"CASE:Ab word:Cd exact:Ef path:gh", "all(case:'Ab' word:'cd' exact:'ef' path:'gh')"},
        {"case:path:Ab exact:case:Cd", "all(case:path:'Ab' case:exact:'Cd')"},
        {"*.Txt a?c \"my *.jpg\" exact:a*b",
         "all(glob:'*.txt' glob:'a?c' glob:'my *.jpg' exact:'a*b')"},
        {"Src/lib src/*.c", "all(path:'src/lib' path:glob:'src/*.c')"},
        {"regex:^(a|b)[)(] c", "all(regex:'^(a|b)[)(]' 'c')"},
        {"(regex:a+(b) | c)", "all(any(regex:'a+(b)' 'c'))"},
        {"regex:\"a b\" case:regex:\\)$", "all(regex:'a b' case:regex:'\\)$')"},
        {"ext:JPG;.png,tar.gz;jpg", "all(ext(jpg png tar.gz))"},
        {"kind:Images kind:file;folder;doc kind:directories",
         "all(kind(image) kind(document file folder) kind(folder))"},
        {"in:a/b/ parent:\"/My Docs/../x\"", "all(in(a/b) parent(/x))"},
        {"empty: hidden:no system:TRUE -empty:false", "all(empty not(hidden) system empty)"},
        {"depth:2 depth:<3 depth:1..4", "all(depth[2-2] depth[0-2] depth[1-4])"},
        {"size:100 size:>10MB size:>=1kib size:<1k size:<=1.5gb",
         "all(size[100-100] size[10000001-] size[1024-] size[0-999] size[0-1500000000])"},
        {"size:1gb..2gb size:..5kb size:2tib.. size:2kb..1kb size:=0.0005kb",
         "all(size[1000000000-2000000000] size[0-5000] size[2199023255552-] size[1000-2000] "
         "size[0-0])"},
        {"size:<0 size:>99999999999999999999tb", "all(size[1-0] size[1-0])"},
        {"\"size\":1 http://x C:x 12:30 File::Spec",
         "all('size:1' path:'http://x' 'c:x' '12:30' 'file::spec')"},
        {"type:image file: -folder: folder:no", "all(kind(image) kind(file) not(kind(folder)) "
                                                "not(kind(folder)))"},
        {"folder:src file:*.c", "all(kind(folder) 'src' kind(file) glob:'*.c')"},
        {"size:10mb+ size:1k- depth:2+ ext:jpg,png",
         "all(size[10000000-] size[0-1000] depth[2-] ext(jpg png))"},
        {"a\\\"b \"c\\\" d\" \\\"", "all('a\"b' 'c\" d' '\"')"},
    });
}

TEST(FindQuery, ReadsSetsAndAlternatives) {
    expectTrees({
        {"img[0-9].png [!a-z]x", "all(glob:'img[0-9].png' glob:'[!a-z]x')"},
        {"report[1].pdf [2026-11] a[b", "all('report[1].pdf' '[2026-11]' 'a[b')"},
        {"\"[a-z]\" exact:[a-z]", "all('[a-z]' exact:'[a-z]')"},
        {"main.{c,h}", "all(any(glob:'main.c' glob:'main.h'))"},
        {"{a,b{,c}}x -{d,e}",
         "all(any(glob:'ax' glob:'bx' glob:'bcx') not(any(glob:'d' glob:'e')))"},
        {"{a} {b a,c} \"{a,b}\"", "all('{a}' '{b' 'a,c}' '{a,b}')"},
        {"src/{a,b}.c", "all(any(path:glob:'src/a.c' path:glob:'src/b.c'))"},
    });
    std::string many = "{a";
    for (int i = 0; i < 40; ++i) many += fmt::format(",b{}", i);
    EXPECT_EQ(parsedFindQuery(many + "}", Timestamp()).root.children.size(), 1U);
    EXPECT_EQ(globSetEnd("a[]b]c", 1), 5U);
    EXPECT_EQ(globSetEnd("[!]]", 0), 4U);
    EXPECT_EQ(globSetEnd("[]", 0), 0U);
}

TEST(FindQuery, TakesForWordsWhatItCannotRead) {
    expectTrees({
        {"size:>banana", "all('size:>banana')", true},
        {"size:1..2..3 size: size:.. size:-1 size:1kg",
         "all('size:1..2..3' 'size:' 'size:..' 'size:-1' 'size:1kg')", true},
        {"a dm:2026-13 b", "all('a' 'dm:2026-13' 'b')", true},
        {"dm:2026-02-29 dm:26 dm:2026-1-1-1 dm:+026",
         "all('dm:2026-02-29' 'dm:26' 'dm:2026-1-1-1' 'dm:+026')", true},
        {"regex:(", "all('regex:(')", true},
        {"(NOT -\"\") a | b", "all(any(all('not' 'a') 'b'))", true},
        {"kind:banana ext:; in: case: empty:maybe depth:x",
         "all('kind:banana' 'ext:;' 'in:' 'case:' 'empty:maybe' 'depth:x')", true},
        {"a \"b c", "all('a' 'b c')", true},
        {"a (b | c", "all('a' any('b' 'c'))", true},
        {"a) b", "all('a' 'b')", true},
        {"a OR", "all('a' 'or')", true},
        {"a | | b |", "all(any('a' 'b'))", true},
        {"NOT", "all('not')", true},
        {"(OR a)", "all('or' 'a')", true},
        {"unknown:x", "all('unknown:x')", true},
    });
    EXPECT_EQ(
        parsedFindQuery("size:>banana", Timestamp()).problem,
        "\"size:>banana\" was taken for a word; size: takes a size such as >10mb or 1gb..2gb.");
    EXPECT_EQ(parsedFindQuery("colour:red", Timestamp()).problem,
              "\"colour:red\" was taken for a word; there is no field colour:.");
    const auto harmless = parsedFindQuery("kind:\x1B[2J" + std::string(90, 'x'), Timestamp());
    EXPECT_EQ(harmless.problem->find('\x1B'), std::string::npos);
    EXPECT_LT(harmless.problem->size(), 150U);
}

TEST(FindQuery, SettlesWhichWordsMayBeInFolders) {
    const auto shownWords = [](const auto& self, const FindQueryNode& node) -> std::string {
        if (node.kind == Kind::text) return node.text.text + (node.text.mayBeInFolder ? "/" : "");
        std::string inner;
        for (const FindQueryNode& child : node.children) inner += self(self, child) + " ";
        return (node.needsWordInName ? "+( " : "( ") + inner + ")";
    };
    const QueryReading readings[] = {
        {"a", "( a )"},
        {"a a", "( a a )"},
        {"a b", "+( a/ b/ )"},
        {"a \"b\"", "( a/ b )"},
        {"a *.b", "( a/ *.b )"},
        {"a path:b", "( a b )"},
        {"a b path:c ext:d", "+( a/ b/ c ( ) )"},
        {"a regex:b case:c", "( a/ b c )"},
        {"a (b | c d)", "( a/ ( b +( c/ d/ ) ) )"},
        {"a (b | path:c)", "( a ( b c ) )"},
        {"a -(b c)", "( a ( ( b c ) ) )"},
    };
    for (const auto& [query, tree, hasProblem] : readings) {
        EXPECT_EQ(shownWords(shownWords, parsedFindQuery(query, Timestamp()).root), tree) << query;
    }
    std::string many;
    for (int i = 0; i < 40; ++i) many += fmt::format("w{} ", i);
    std::size_t inFolders = 0;
    for (const FindQueryNode& word : parsedFindQuery(many, Timestamp()).root.children) {
        inFolders += word.text.mayBeInFolder ? 1U : 0U;
    }
    EXPECT_EQ(inFolders, 15U);
}

std::size_t depthOf(const FindQueryNode& node) {
    std::size_t deepest = 0;
    for (const FindQueryNode& child : node.children) deepest = std::max(deepest, depthOf(child));
    return deepest + 1;
}

TEST(FindQuery, KnowsThePersonsHome) {
    const auto folder = [](std::string_view query) {
        return parsedFindQuery(query, Timestamp()).root.children.at(0).names.at(0);
    };
    EXPECT_EQ(folder("in:~/Music/../x"), path::joined(platform::homeFolder().path(), "x"));
    EXPECT_EQ(folder("parent:~"), platform::homeFolder().path());
    EXPECT_EQ(folder("in:~ada"), "~ada");
}

TEST(FindQuery, ReadsHostileQueriesInTimeThatGrowsWithThem) {
    const auto repeated = [](std::string_view text, std::size_t count) {
        std::string all;
        for (std::size_t i = 0; i < count; ++i) all += text;
        return all;
    };
    const auto numbered = [](std::string_view text, std::string_view end) {
        std::string all;
        for (int i = 0; all.size() < 100'000; ++i) all += fmt::format("{}{}{}", text, i, end);
        return all;
    };
    const std::string queries[] = {
        repeated("x", 100'000),
        repeated("(", 10'000) + "a" + repeated(")", 10'000),
        repeated("(a|-(b ", 10'000),
        repeated(")", 100'000),
        repeated("-", 100'000),
        repeated("-", 99'999) + "a",
        repeated("NOT ", 25'000),
        repeated("\"", 99'999),
        repeated("a OR ", 20'000),
        repeated("case:", 20'000),
        repeated("regex:(a ", 11'000),
        "regex:" + repeated("(", 100'000),
        "regex:" + repeated("(x+x+)+", 14'000),
        "regex:((((((a{100}){100}){100}){100}){100}){100})",
        repeated("in:a/b regex:a ", 6'000),
        "kind:" + repeated("s", 100'000),
        "ext:" + repeated("a;", 50'000),
        "size:" + repeated("9", 100'000),
        repeated("\xCC\x81", 50'000),
        repeated("{", 100'000),
        repeated("{a,b}", 20'000),
        repeated("{a,{b,c}} ", 10'000),
        repeated("[a-", 33'000),
        repeated("\xFF(", 50'000),
        numbered("x", " "),
        numbered("ext:x", "|"),
    };
    for (const std::string& query : queries) {
        const auto start = std::chrono::steady_clock::now();
        const FindQuery read = parsedFindQuery(query, Timestamp());
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        EXPECT_LT(taken.count(), 3.0) << query.substr(0, 20);
        EXPECT_LT(depthOf(read.root), 300U) << query.substr(0, 20);
    }
}

TEST(FindQuery, IsUsedAsItsHeaderSays) {
    const Timestamp now = {};
    const FindQuery query = parsedFindQuery("report (pdf | docx) -draft size:>1mb", now);
    EXPECT_EQ(shown(query.root), "all('report' any('pdf' 'docx') not('draft') size[1000001-])");
}

} // namespace
} // namespace tidyro
