#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/LocaleText.h"
#include "Base/RoomText.h"
#include "Base/UnicodeText.h"

namespace tidyro {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

const LocaleText& english() {
    static const LocaleText text{LocaleText::Rules{}};
    return text;
}
const LocaleText& german() {
    static const LocaleText text{{.decimalPoint = ",", .groupSeparator = ".", .grouping = "\3"}};
    return text;
}

TEST(RoomText, WritesSizesInDecimalUnits) {
    struct Case {
        std::uint64_t count;
        std::string_view text;
    };
    for (const auto& [count, text] : std::vector<Case>{{0, "Zero KB"},
                                                       {1, "1 byte"},
                                                       {2, "2 bytes"},
                                                       {999, "999 bytes"},
                                                       {1'000, "1 KB"},
                                                       {1'499, "1 KB"},
                                                       {1'500, "2 KB"},
                                                       {12'345, "12 KB"},
                                                       {999'499, "999 KB"},
                                                       {999'500, "1 MB"},
                                                       {999'999, "1 MB"},
                                                       {1'049'999, "1 MB"},
                                                       {1'050'000, "1.1 MB"},
                                                       {1'500'000, "1.5 MB"},
                                                       {999'949'999, "999.9 MB"},
                                                       {999'950'000, "1 GB"},
                                                       {1'005'000'000, "1.01 GB"},
                                                       {23'400'000'000, "23.4 GB"},
                                                       {23'420'000'000, "23.42 GB"},
                                                       {999'994'999'999, "999.99 GB"},
                                                       {999'995'000'000, "1 TB"},
                                                       {2'050'000'000'000'000, "2.05 PB"},
                                                       {largest, "18.45 EB"}}) {
        EXPECT_EQ(RoomText::bytes(count, english()), text) << count;
    }
    EXPECT_EQ(RoomText::bytes(23'420'000'000, german()), "23,42 GB");
}

TEST(RoomText, CountsWithTheNounThatFits) {
    EXPECT_EQ(RoomText::counted(0, "file", "files", english()), "0 files");
    EXPECT_EQ(RoomText::counted(1, "file", "files", english()), "1 file");
    EXPECT_EQ(RoomText::counted(2'000, "file", "files", german()), "2.000 files");
}

TEST(LocaleText, GroupsCounts) {
    struct Case {
        LocaleText::Rules rules;
        std::uint64_t value;
        std::string text;
    };
    const LocaleText::Rules indian{.grouping = "\3\2"};
    const LocaleText::Rules once{.grouping = {3, std::numeric_limits<char>::max()}};
    for (const auto& [rules, value, text] :
         std::vector<Case>{{{}, 0, "0"},
                           {{}, 999, "999"},
                           {{}, 1'000, "1,000"},
                           {{}, 999'999, "999,999"},
                           {{}, largest, "18,446,744,073,709,551,615"},
                           {german().rules(), 12'345, "12.345"},
                           {indian, 100'000, "1,00,000"},
                           {indian, 12'345'678, "1,23,45,678"},
                           {{.grouping = ""}, 1'234'567, "1234567"},
                           {once, 1'234'567, "1234,567"},
                           {{.groupSeparator = "\u202F"}, 1'234'567, "1\u202F234\u202F567"}}) {
        EXPECT_EQ(LocaleText(rules).count(value), text);
    }
}

TEST(LocaleText, WritesDecimals) {
    EXPECT_EQ(english().decimal(0.118, 2), "0.12");
    EXPECT_EQ(english().decimal(0, 0), "0");
    EXPECT_EQ(english().decimal(999.96, 1), "1,000.0");
    EXPECT_EQ(english().decimal(-1'234.56, 1), "-1,234.6");
    EXPECT_EQ(english().decimal(-999, 0), "-999");
    EXPECT_EQ(german().decimal(1'234'567.5, 2), "1.234.567,50");
}

// "C.UTF-8" is installed on many systems, with no grouping at all.
TEST(LocaleText, ReadsAsEnglishWithoutALocale) {
    for (const char* name : {"C", "POSIX", "C.UTF-8", "tlh_XX.UTF-8", "no such locale"}) {
        const LocaleText text = LocaleText::named(name);
        EXPECT_EQ(text.count(12'345), "12,345") << name;
        EXPECT_EQ(text.decimal(1'000.5, 2), "1,000.50") << name;
    }
}

TEST(UnicodeText, HandlesBytesThatAreNoText) {
    struct Case {
        std::string given, repaired, lowered, onTerminal;
    };
    const std::string bad = "\uFFFD";
    for (const auto& [given, repaired, lowered, onTerminal] : std::vector<Case>{
             {"Plain.TXT", "Plain.TXT", "plain.txt", "Plain.TXT"},
             {"A\0B"s, "A\0B"s, "a\0b"s, "A\\x00B"},
             {"\u00C4\u03A3\u1E9E\U0001F600", "\u00C4\u03A3\u1E9E\U0001F600",
              "\u00E4\u03C3\u00DF\U0001F600", "\u00C4\u03A3\u1E9E\U0001F600"},
             // No locale's own rule: a dotted capital I becomes the common i.
             {"\u0130", "\u0130", "i", "\u0130"},
             {"A\xFFZ", "A" + bad + "Z", "a" + bad + "z", "A\\xFFZ"},
             {"\x80", bad, bad, "\\x80"},
             {"\xE2\x82", bad, bad, "\\xE2\\x82"},
             {"\xF0\x9F\x98Q", bad + "Q", bad + "q", "\\xF0\\x9F\\x98Q"},
             {"\xC3\xC3\xA9", bad + "\u00E9", bad + "\u00E9", "\\xC3\u00E9"},
             {"\xC0\xAF", bad + bad, bad + bad, "\\xC0\\xAF"}, // too long a form
             {"\xED\xA0\x80", bad + bad + bad, bad + bad + bad, "\\xED\\xA0\\x80"}, // a surrogate
             {"\xF4\x90\x80\x80", bad + bad + bad + bad, bad + bad + bad + bad,
              "\\xF4\\x90\\x80\\x80"}, // past the last code point
             {"\uFFFE", "\uFFFE", "\uFFFE", "\uFFFE"}}) {
        EXPECT_EQ(repairedUTF8(given), repaired);
        EXPECT_EQ(lowercased(given), lowered);
        EXPECT_EQ(terminalSafe(given), onTerminal);
    }
}

TEST(UnicodeText, KeepsNamesFromDrivingTheTerminal) {
    EXPECT_EQ(terminalSafe("a\n\r\t\x1B[2J\x7F"), "a\\n\\r\\t\\x1B[2J\\x7F");
    EXPECT_EQ(terminalSafe("\u0080\u0085\u009B\u009F|\u00A0"), "\\x80\\x85\\x9B\\x9F|\u00A0");
    EXPECT_EQ(terminalSafe("\u200E\u200F\u061C\u2028\u2029"),
              "\\u{200E}\\u{200F}\\u{061C}\\u{2028}\\u{2029}");
    EXPECT_EQ(terminalSafe("\u202A\u202E|\u202F\u2066\u2069|\u206A"),
              "\\u{202A}\\u{202E}|\u202F\\u{2066}\\u{2069}|\u206A");
}

TEST(UnicodeText, WritesOnlyCodePointsThatExist) {
    EXPECT_EQ(utf8Text(U'A'), "A");
    EXPECT_EQ(utf8Text(0x202F), "\u202F");
    EXPECT_EQ(utf8Text(0x10FFFF), "\U0010FFFF");
    for (const char32_t missing : {0xD800U, 0xDFFFU, 0x110000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(utf8Text(missing), "\uFFFD") << std::uint32_t{missing};
    }
}

} // namespace
} // namespace tidyro
