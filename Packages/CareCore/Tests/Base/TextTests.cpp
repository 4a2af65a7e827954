#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/LocaleText.h"
#include "Base/RoomText.h"
#include "Base/SystemTexts.h"
#include "Base/UnicodeText.h"

namespace tidyro {
namespace {

using namespace std::string_literals;
using Counts = std::vector<std::pair<std::uint64_t, std::string_view>>;

constexpr std::uint64_t largestCount = std::numeric_limits<std::uint64_t>::max();

const LocaleText english{LocaleText::Rules{}};
const LocaleText german{{.decimalPoint = ",", .groupSeparator = "."}};

TEST(RoomText, WritesSizesInDecimalUnits) {
    for (const auto& [count, text] : Counts{{0, "Zero KB"},
                                            {1, "1 byte"},
                                            {999, "999 bytes"},
                                            {1'000, "1 KB"},
                                            {1'499, "1 KB"},
                                            {1'500, "2 KB"},
                                            {999'499, "999 KB"},
                                            {999'999, "1 MB"},
                                            {1'049'999, "1 MB"},
                                            {1'500'000, "1.5 MB"},
                                            {999'949'999, "999.9 MB"},
                                            {999'950'000, "1 GB"},
                                            {1'005'000'000, "1.01 GB"},
                                            {23'420'000'000, "23.42 GB"},
                                            {999'995'000'000, "1 TB"},
                                            {2'050'000'000'000'000, "2.05 PB"},
                                            {largestCount, "18.45 EB"}}) {
        EXPECT_EQ(RoomText::bytes(count, english), text) << count;
    }
    EXPECT_EQ(RoomText::bytes(23'420'000'000, german), "23,42 GB");
    EXPECT_EQ(RoomText::counted(1, "file", "files", english), "1 file");
    EXPECT_EQ(RoomText::counted(2'000, "file", "files", german), "2.000 files");
}

TEST(LocaleText, GroupsAsItsRulesSay) {
    const LocaleText indian{{.grouping = "\3\2"}};
    const LocaleText once{{.grouping = {3, std::numeric_limits<char>::max()}}};
    const LocaleText never{{.grouping = ""}};
    const LocaleText narrow{{.groupSeparator = "\u202F"}};
    EXPECT_EQ(english.count(999), "999");
    EXPECT_EQ(english.count(1'000), "1,000");
    EXPECT_EQ(english.count(largestCount), "18,446,744,073,709,551,615");
    EXPECT_EQ(indian.count(100'000), "1,00,000");
    EXPECT_EQ(indian.count(12'345'678), "1,23,45,678");
    EXPECT_EQ(once.count(1'234'567), "1234,567");
    EXPECT_EQ(never.count(1'234'567), "1234567");
    EXPECT_EQ(narrow.count(1'234'567), "1\u202F234\u202F567");
    EXPECT_EQ(english.decimal(0.118, 2), "0.12");
    EXPECT_EQ(english.decimal(999.96, 1), "1,000.0");
    EXPECT_EQ(english.decimal(-999, 0), "-999");
    EXPECT_EQ(german.decimal(-1'234'567.5, 2), "-1.234.567,50");
}

// "C.UTF-8" is installed on many systems, and has no grouping at all.
TEST(LocaleText, ReadsAsEnglishWithoutALocale) {
    for (const char* name : {"C", "POSIX", "C.UTF-8", "no such locale"}) {
        EXPECT_EQ(LocaleText::named(name).count(12'345), "12,345") << name;
        EXPECT_EQ(LocaleText::named(name).decimal(1'000.5, 2), "1,000.50") << name;
    }
}

TEST(UnicodeText, RepairsBytesThatAreNoText) {
    const std::string valid = "A\0\u00E9\U0001F600\uFFFE"s;
    EXPECT_EQ(repairedUTF8(valid), valid);
    for (const auto& [given, repaired] : std::vector<std::pair<std::string_view, std::string_view>>{
             {"A\xFFZ", "A\uFFFDZ"},
             {"\x80", "\uFFFD"},
             {"\xE2\x82", "\uFFFD"}, // cut off: one sequence
             {"\xF0\x9F\x98Q", "\uFFFDQ"},
             {"\xC3\xC3\xA9", "\uFFFD\u00E9"},
             {"\xC0\xAF", "\uFFFD\uFFFD"},                        // too long a form
             {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},              // a surrogate
             {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"}}) { // past the last code point
        EXPECT_EQ(repairedUTF8(given), repaired);
    }
}

TEST(UnicodeText, WritesOnlyCodePointsThatExist) {
    for (const char32_t missing : {0xD800U, 0xDFFFU, 0x110000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(utf8Text(missing), "\uFFFD") << std::uint32_t{missing};
    }
}

TEST(SystemTexts, AreGivenOnMacOSAndNameNoMacElsewhere) {
    const auto onMacOS = [](SystemText text) { return systemText(text, OperatingSystem::macOS); };
    EXPECT_EQ(onMacOS(SystemText::movedToTrash),
              "Moved to the macOS Trash, where you can put it back.");
    EXPECT_EQ(onMacOS(SystemText::folderWasNotRead),
              "macOS would not let Tidyro read {path} ({reason}).");
    EXPECT_EQ(onMacOS(SystemText::belongsToSystem),
              "Part of macOS. It starts up and updates the Mac from here.");
    EXPECT_EQ(systemText(SystemText::movedToTrash, OperatingSystem::linux_),
              "Moved to the Trash, where you can put it back.");
    const auto filled = [](std::string_view text) {
        std::set<std::string> names;
        for (auto at = text.find('{'); at != text.npos; at = text.find('{', at + 1)) {
            names.emplace(text.substr(at, text.find('}', at) - at));
        }
        return names;
    };
    for (const SystemTextRow& row : systemTexts()) {
        EXPECT_EQ(filled(row.onMacOS), filled(row.onLinux)) << row.onLinux;
        EXPECT_FALSE(row.onMacOS.empty() || row.onLinux.empty());
        for (const char* foreign : {"Mac", "macOS", "Finder", "System Settings"}) {
            EXPECT_FALSE(row.onLinux.contains(foreign)) << row.onLinux;
        }
    }
}

TEST(UnicodeText, LowercasesInNoLocale) {
    EXPECT_EQ(lowercased("Plain.TXT"), "plain.txt");
    EXPECT_EQ(lowercased("\u00C4\u03A3\u1E9E\u0130I\U0001F600"), "\u00E4\u03C3\u00DFii\U0001F600");
    EXPECT_EQ(lowercased("A\xFFZ"), "a\uFFFDz");
}

TEST(UnicodeText, KeepsASCIIWhateverStandsBesideIt) {
    // A search rules names out by ASCII pieces of what it looks for.
    for (char32_t other = 0x80; other < 0x20000; ++other) {
        const std::string beside = utf8Text(other);
        ASSERT_TRUE(searchFolded("A" + beside).starts_with("a")) << std::uint32_t{other};
        ASSERT_TRUE(searchFolded(beside + "<").ends_with("<")) << std::uint32_t{other};
    }
}

TEST(UnicodeText, KeepsNamesFromDrivingTheTerminal) {
    EXPECT_EQ(terminalSafe("\u00E9\U0001F600\u00A0\u202F"), "\u00E9\U0001F600\u00A0\u202F");
    EXPECT_EQ(terminalSafe("a\n\r\t\x1B[2J\x7F\0"s), "a\\n\\r\\t\\x1B[2J\\x7F\\x00");
    EXPECT_EQ(terminalSafe("\u0080\u009B\u009F"), "\\x80\\x9B\\x9F");
    EXPECT_EQ(terminalSafe("A\xFF\xE2\x82"), "A\\xFF\\xE2\\x82");
    EXPECT_EQ(terminalSafe("\u200E\u200F\u061C\u2028\u2029"),
              "\\u{200E}\\u{200F}\\u{061C}\\u{2028}\\u{2029}");
    EXPECT_EQ(terminalSafe("\u202A\u202E\u2066\u2069"), "\\u{202A}\\u{202E}\\u{2066}\\u{2069}");
}

} // namespace
} // namespace tidyro
