#include "App/ScanDiagnostics.h"

#include <algorithm>
#include <deque>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using testing::TemporaryFolder;
using Subject = ScanDiagnostics::Subject;

TEST(ScanDiagnostics, ReadsItsSwitches) {
    const auto parsed = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "Tidyro");
        return ScanDiagnostics::parse(arguments, "/home/ada");
    };
    const CommandLineParse<ScanDiagnostics::Request> notRequested = CommandLineNotRequested{};
    EXPECT_EQ(parsed({}), notRequested);
    EXPECT_EQ(parsed({"--cli", "index", "/a", "--query", "--diagnose-find"}), notRequested);
    EXPECT_EQ(std::get<ScanDiagnostics::Request>(parsed({"--diagnose-scan", "~/Music/../x"})),
              (ScanDiagnostics::Request{.subject = Subject::scan, .folder = "/home/ada/x"}));
    EXPECT_EQ(std::get<ScanDiagnostics::Request>(parsed({"--diagnose-find", "/a"})).subject,
              Subject::find);
    EXPECT_EQ(std::get<ScanDiagnostics::Request>(parsed({"--diagnose-duplicates", "/a"})).subject,
              Subject::duplicates);
    EXPECT_TRUE(
        std::get<ScanDiagnostics::Request>(parsed({"--diagnose-find", "/a", "--as-is"})).isAsIs);
    EXPECT_EQ(std::get<ScanDiagnostics::Request>(
                  parsed({"--diagnose-find", "/a", "--print0", "--limit", "7", "--sort", "size"}))
                  .listing,
              (ScanDiagnostics::Request::Listing{
                  .form = FindHitForm::zeroEnded, .order = FindHitOrder::size, .limit = 7}));
    for (const std::vector<std::string>& malformed :
         {std::vector<std::string>{"--diagnose-find"},
          {"--diagnose-find", ""},
          {"--diagnose-find", "--cli"},
          {"--diagnose-find", "/a", "/b"},
          {"--diagnose-scan", "/a", "--as-is"},
          {"--diagnose-find", "/a", "--limit"},
          {"--diagnose-find", "/a", "--limit", "-1"},
          {"--diagnose-find", "/a", "--sort", "colour"},
          {"--diagnose-find", "--diagnose-scan", "/a"}}) {
        EXPECT_EQ(std::get<CommandLineUsage>(parsed(malformed)).text, ScanDiagnostics::usageText);
    }
}

/// The lines of a run, which ends with this status.
std::vector<std::string> ran(int status, const ScanDiagnostics::Request& request,
                             const std::string& indexFile = "",
                             std::deque<std::string> queries = {}) {
    std::vector<std::string> lines;
    EXPECT_EQ(ScanDiagnostics::run(
                  request, {.write = [&](std::string_view line) { lines.emplace_back(line); }},
                  {.nextQuery = [&]() -> std::optional<std::string> {
                       if (queries.empty()) return std::nullopt;
                       std::string query = queries.front();
                       queries.pop_front();
                       return query;
                   },
                   .indexFile = FileURL::file(indexFile)}),
              status);
    return lines;
}

TEST(ScanDiagnostics, KeepsAnIndexAndAnswersFromIt) {
    const TemporaryFolder place;
    place.file("tree/deeper/readme.md");
    place.file("tree/readme");
    place.file("other/readme");
    const std::string file = place / "kept/index";
    const ScanDiagnostics::Request tree{.subject = Subject::find, .folder = place / "tree"};
    const auto answer = [&](const char* count) {
        return MatchesRegex(std::string("\"readme\": ") + count + " in [0-9]+\\.[0-9]{3} ms\n");
    };
    EXPECT_THAT(ran(0, tree, file, {"readme", "none"}),
                ElementsAre(MatchesRegex("build +[0-9.]+ s  4 names\n"), HasSubstr(file),
                            answer("2 matches"), "  " + place / "tree/readme" + "\n",
                            "  " + place / "tree/deeper/readme.md" + "\n",
                            StartsWith("\"none\": 0 matches in")));
    place.file("tree/another readme"); // what is saved does not know of it
    const auto opened = MatchesRegex("open +[0-9.]+ s  4 names, 0\\.[0-9] h old, from .*\n");
    ScanDiagnostics::Request asIs = tree;
    asIs.isAsIs = true;
    EXPECT_THAT(ran(0, asIs, file), ElementsAre(opened));
    EXPECT_THAT(ran(0, tree, file, {"another"}),
                ElementsAre(opened,
                            MatchesRegex("refresh +[0-9.]+ s  2 folders, 2 read again, 5 names\n"),
                            StartsWith("save"), StartsWith("\"another\": 1 match in"),
                            "  " + place / "tree/another readme" + "\n"));
    // The index of another folder, or no index, is no help.
    EXPECT_THAT(ran(0, {.subject = Subject::find, .folder = place / "other"}, file, {"readme"}),
                ElementsAre(HasSubstr(file + " is the index of " + place / "tree"),
                            StartsWith("build"), StartsWith("save"), answer("1 match"),
                            "  " + place / "other/readme" + "\n"));
    EXPECT_THAT(ran(0, tree, place / "other/readme/x"),
                ElementsAre(StartsWith("build"), HasSubstr("Not a directory")));
    place.file("kept/damaged", "TIDYROFI");
    EXPECT_THAT(ran(0, tree, place / "kept/damaged"),
                ElementsAre(HasSubstr("kept/damaged: The index is cut short.\n"),
                            StartsWith("build"), StartsWith("save")));
    EXPECT_THAT(ran(66, {.subject = Subject::find, .folder = file}),
                ElementsAre("No folder at " + file + ".\n"));
}

TEST(ScanDiagnostics, ListsEverythingThatMatched) {
    const TemporaryFolder place;
    for (int i = 0; i < 700; ++i) place.file(fmt::format("tree/deep/note {}", i));
    place.file("tree/note large", "12345");
    place.file("tree/gone");
    const auto listed = [&](ScanDiagnostics::Request::Listing listing, const char* query) {
        std::string all;
        for (const std::string& piece :
             ran(0, {.subject = Subject::find, .folder = place / "tree", .listing = listing},
                 place / "kept/index", {query})) {
            all += piece;
        }
        return all;
    };
    const std::string lines = listed({}, "note");
    EXPECT_EQ(std::ranges::count(lines, '\n'), 701);
    EXPECT_THAT(lines, StartsWith(place / "tree/note large" + "\n"));
    EXPECT_EQ(
        listed({.form = FindHitForm::zeroEnded, .order = FindHitOrder::path, .limit = 2}, "note"),
        place / "tree/deep/note 0" + '\0' + place / "tree/deep/note 1" + '\0');
    EXPECT_THAT(
        listed({.form = FindHitForm::json, .order = FindHitOrder::size, .limit = 1}, "note"),
        HasSubstr(R"(note large","kind":"other","size":5,"date":")"));
    EXPECT_EQ(listed({.limit = 0}, "note"), "");
}

TEST(ScanDiagnostics, TellsWhatIsClosedToTheIndex) {
    const TemporaryFolder place;
    place.folder("closed");
    place.permissions("closed", 0);
    const auto first = [&](int status, const char* folder) {
        return testing::asOrdinaryUser([&] {
            return ran(status, {.subject = Subject::find, .folder = place / folder}, "/dev/null/x")
                .front();
        });
    };
    EXPECT_THAT(first(0, "."), HasSubstr("  2 names, 1 closed folder\n"));
    EXPECT_EQ(first(1, "closed"), "Stopped: The folder could not be read (Permission denied).\n");
}

TEST(ScanDiagnostics, TellsThePhases) {
    const TemporaryFolder place;
    place.noise("a", 5'000);
    place.noise("b", 5'000);
    EXPECT_THAT(ran(0, {.subject = Subject::scan, .folder = place.path()}),
                ElementsAre(MatchesRegex("read +[0-9.]+ s  3 items\n"),
                            MatchesRegex("rank the largest +[0-9.]+ s  2 files\n"),
                            StartsWith("sort into groups"), StartsWith("make a snapshot")));
    const auto duplicates = ran(0, {.subject = Subject::duplicates, .folder = place.path()});
    ASSERT_GE(duplicates.size(), 2U);
    EXPECT_THAT(duplicates.front(), StartsWith("listing"));
    EXPECT_THAT(duplicates.back(), MatchesRegex("all +[0-9.]+ s  1 set\n"));
}

} // namespace
} // namespace tidyro
