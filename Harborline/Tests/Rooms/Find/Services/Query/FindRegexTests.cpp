#include "Rooms/Find/Services/Query/FindRegex.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Search/FindRandomTrees.h"

namespace tidyro {
namespace {

constexpr std::array expressions{
    "a",         "^a",       "a$",        "^$",       "^",
    "$",         "x*",       "b|^a",      "[^a]",     "[^a]$",
    "\\s",       "\\n",      "[\\n]",     "a[^b]b",   "\\ba",
    "a\\b",      "\\Ba",     "\\Aa",      "a\\z",     "(?s)a.b",
    "(?s:a.b)",  "(?i)A",    "(?-i)A",    "(?m)^b",   "(?m:a$)",
    "(?P<n>ab)", "(?:ab)+$", "\\Qa.\\E",  "a\\C",     "^.{3}$",
    "\\x{E9}",   "\\pL\\d",  "(ab|ba)1",  "\\d{2}",   "[[:^alpha:]]$",
    "s",         "K",        "ab.*ba",    "(|ab)1",   "[ab]{2}1$",
    "\\D\\d\\D", ".",        "\\x{FFFD}", "\\x{17F}", "[\\x{0}-\\x{10FFFF}]b",
};

/// Names side by side in one array, as an index has them.
struct Names {
    std::string bytes;
    std::vector<std::string_view> all;

    explicit Names(testing::RandomSource& random) {
        constexpr std::array<std::string_view, 16> pieces{
            "a",  "b",      "A",      "B",
            "ab", "1",      "22",     " ",
            ".",  "\n",     "\xFF",   "\u00E9",
            "s",  "\u017F", "\u212A", "a long piece of a name, longer than others"};
        std::vector<std::size_t> lengths(1 + random.below(64));
        const bool hasOddOnes = random.oneIn(2);
        for (std::size_t& length : lengths) {
            const std::size_t before = bytes.size();
            for (std::uint32_t left = 1 + random.below(6); left > 0; --left) {
                bytes += hasOddOnes ? random.oneOf(pieces) : pieces[random.below(9)];
            }
            length = bytes.size() - before;
        }
        std::string_view rest = bytes;
        for (const std::size_t length : lengths) {
            all.push_back(rest.substr(0, length));
            rest.remove_prefix(length);
        }
    }
};

TEST(FindRegex, MatchesManyNamesInOneGoAsOneByOne) {
    testing::RandomSource random(5);
    for (const std::string_view expression : expressions) {
        for (const bool isCaseSensitive : {false, true}) {
            const auto regex =
                FindRegex::compiled(expression, {.isCaseSensitive = isCaseSensitive});
            ASSERT_NE(regex, nullptr) << expression;
            FindRegexRun run(*regex);
            for (int round = 0; round < 40; ++round) {
                const Names names(random);
                std::uint64_t expected = 0;
                for (std::size_t i = 0; i < names.all.size(); ++i) {
                    expected |= std::uint64_t{regex->isIn(names.all[i])} << i;
                }
                ASSERT_EQ(run.matching(names.all), expected)
                    << expression << " in " << terminalSafe(names.bytes);
            }
        }
    }
}

TEST(FindRegex, RulesOutByItsLiteralsOnlyWhatDoesNotMatch) {
    testing::RandomSource random(6);
    std::size_t ruledOut = 0;
    for (const std::string_view expression : expressions) {
        for (const bool isCaseSensitive : {false, true}) {
            const auto regex =
                FindRegex::compiled(expression, {.isCaseSensitive = isCaseSensitive});
            for (int round = 0; round < 10; ++round) {
                for (const std::string_view name : Names(random).all) {
                    const std::string folded = searchFolded(name);
                    std::uint32_t held = 0;
                    for (std::size_t i = 0; i < regex->literals().size(); ++i) {
                        const bool holds = folded.find(regex->literals()[i]) != std::string::npos;
                        held |= std::uint32_t{holds} << i;
                    }
                    if (regex->mayMatch(held)) continue;
                    ++ruledOut;
                    ASSERT_FALSE(regex->isIn(name)) << expression << " in " << terminalSafe(name);
                }
            }
        }
    }
    EXPECT_GT(ruledOut, 1'000U);
}

TEST(FindRegex, RefusesWhatIsNoneOrTooLarge) {
    for (const std::string& expression :
         {std::string("("), std::string("a{2,1}"), std::string("((a{1,90}){1,90}){1,90}"),
          std::string(5'000, 'a')}) {
        EXPECT_EQ(FindRegex::compiled(expression, {.isCaseSensitive = false}), nullptr)
            << expression.substr(0, 20);
    }
}

} // namespace
} // namespace tidyro
