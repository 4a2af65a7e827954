// Whole runs over real folders, and the executable itself.
#include "App/CommandLineMode.h"

#include <cerrno>
#include <regex>

#include <sys/wait.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rooms/Activity/ActivityArchive.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using testing::TemporaryFolder;
using Command = CommandLineMode::Command;

struct Output {
    int status = -1;
    std::vector<std::string> lines;
};

enum class Reader : std::uint8_t { file, terminal };

Output ran(const CommandLineMode::Request& request, Reader reader = Reader::file,
           const std::optional<FileURL>& snapshots = std::nullopt) {
    Output output;
    output.status = CommandLineMode::run(
        request,
        {.write = [&](std::string_view line) { output.lines.emplace_back(line); },
         .isTerminal = reader == Reader::terminal},
        snapshots);
    for (std::string& line : output.lines) {
        EXPECT_TRUE(line.ends_with('\n'));
        line.pop_back();
    }
    return output;
}

TEST(CommandLineMode, ScanPrintsTotalsTheLargestAndTheGroups) {
    const TemporaryFolder place;
    place.noise("a/large", 2'345'678);
    place.noise("b", 4'096);
    place.noise("project/node_modules/x", 8'192);
    place.file("project/package.json");
    const auto [status, lines] =
        ran({.command = Command::scan, .path = place.path(), .largest = 2});
    EXPECT_EQ(status, 0);
    EXPECT_THAT(
        lines, ElementsAre(MatchesRegex("Read " + place.path() +
                                        ": 4 files in 3 folders, 2\\.4 MB on "
                                        "disk \\(2\\.4 MB of data\\), in 0\\.[0-9][0-9] s\\."),
                           MatchesRegex("Largest 2, ranked in 0\\.[0-9]{3} s:"),
                           "  1     2.3 MB  " + place / "a/large",
                           "  2       8 KB  " + place / "project/node_modules/x", "Cleanup groups:",
                           "  Generated project folders            1 item       8 KB"));
}

TEST(CommandLineMode, RunsAsItsHeaderShows) {
    const TemporaryFolder place;
    const std::string folder = place.path();
    std::string shown;
    const auto show = [&](std::string_view line) { shown += line; };
    const int status =
        CommandLineMode::run({.command = CommandLineMode::Command::scan, .path = folder},
                             {.write = [&](std::string_view line) { show(line); }});
    EXPECT_EQ(status, ExitStatus::succeeded);
    EXPECT_TRUE(shown.starts_with("Read " + folder)) << shown;
}

TEST(CommandLineMode, ScanOfLittleUsesTheSingular) {
    const TemporaryFolder place;
    place.file("only/one");
    const auto [status, lines] = ran({.command = Command::scan, .path = place.path()});
    EXPECT_THAT(lines,
                ElementsAre(MatchesRegex(".*: 1 file in 1 folder, Zero KB on disk \\(Zero "
                                         "KB of data\\), in .*"),
                            MatchesRegex("Largest 1, .*"), "  1    Zero KB  " + place / "only/one",
                            "Cleanup groups: nothing in this folder belongs to one."));
    const TemporaryFolder empty;
    EXPECT_THAT(ran({.command = Command::scan, .path = empty.path()}).lines,
                ElementsAre(MatchesRegex(".*: 0 files in 0 folders, .*"),
                            MatchesRegex("Largest 0, .*"),
                            "Cleanup groups: nothing in this folder belongs to one."));
}

TEST(CommandLineMode, TellsOfClosedFolders) {
    const TemporaryFolder place;
    place.folder("first");
    place.permissions("first", 0);
    const auto told = [&] {
        return testing::asOrdinaryUser([&] {
            const Output output = ran({.command = Command::scan, .path = place.path()});
            return fmt::format("{} {}", output.status, output.lines.at(1));
        });
    };
    EXPECT_EQ(told(), "0 1 folder was closed to Tidyro and not measured.");
    place.folder("second");
    place.permissions("second", 0);
    EXPECT_EQ(told(), "0 2 folders were closed to Tidyro and not measured.");
}

TEST(CommandLineMode, ShowsHarmlessNamesToTerminalsAndTrueNamesToFiles) {
    const TemporaryFolder place;
    place.noise("clear\x1B[2J\nline", 5'000);
    const CommandLineMode::Request request{.command = Command::scan, .path = place.path()};
    EXPECT_THAT(ran(request, Reader::terminal).lines.at(2),
                ::testing::EndsWith(place / "clear\\x1B[2J\\nline"));
    EXPECT_THAT(ran(request, Reader::file).lines.at(2),
                ::testing::EndsWith(place / "clear\x1B[2J\nline"));
}

TEST(CommandLineMode, SnapshotKeepsWhatItSays) {
    const TemporaryFolder place;
    place.noise("tree/a/large", 2'000'000);
    place.file("tree/b/small", "x");
    const FileURL folder = FileURL::folder(place / "kept");
    const auto [status, lines] =
        ran({.command = Command::snapshot, .path = place / "tree"}, Reader::file, folder);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1], "Kept a snapshot of 2 folders, 2 MB in all. Compare it with a later scan "
                        "in Activity.");
    const auto files = ActivityArchive(folder).files();
    ASSERT_EQ(files->size(), 1U);
    EXPECT_EQ(ActivityArchive::load(files->front())->title, "tree");

    const auto failed = ran({.command = Command::snapshot, .path = place / "tree"}, Reader::file,
                            FileURL::folder(place / "tree/b/small"));
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.lines.at(1), "Stopped: The snapshot could not be kept in " +
                                      place / "tree/b/small" + " (Not a directory).");
}

TEST(CommandLineMode, IndexTimesEachQuery) {
    const TemporaryFolder place;
    place.file("deeper/My Readme.txt");
    place.file("readme");
    place.file("other");
    const auto [status, lines] = ran({.command = Command::index,
                                      .path = place.path(),
                                      .queries = {"README", "nothing \x1B", "other"}},
                                     Reader::terminal);
    EXPECT_EQ(status, 0);
    constexpr const char* time = "[0-9]+\\.[0-9] ms";
    EXPECT_THAT(
        lines,
        ElementsAre(MatchesRegex("Indexed 5 names in 0\\.[0-9][0-9] s\\."),
                    MatchesRegex(fmt::format("  \"README\": 2 matches in {}, first {}", time,
                                             place / "readme")),
                    MatchesRegex(fmt::format("  \"nothing \\\\x1B\": 0 matches in {}", time)),
                    MatchesRegex(fmt::format("  \"other\": 1 match in {}, first {}", time,
                                             place / "other"))));
    const TemporaryFolder empty;
    EXPECT_THAT(ran({.command = Command::index, .path = empty.path()}).lines,
                ElementsAre(MatchesRegex("Indexed 1 name in .*")));
    empty.permissions("", 0);
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  const Output output = ran({.command = Command::index, .path = empty.path()});
                  return fmt::format("{} {}", output.status, output.lines.at(0));
              }),
              "0 The index could not be built.");
}

TEST(CommandLineMode, TellsWhichVolumesWereNotRead) {
    const TemporaryFolder place;
    for (const char* name : {"a", "b", "c", "d"}) place.folder(std::string("tree/") + name);
    place.file("other/x");
    const auto lines = testing::inMountNamespace([&]() -> std::string {
        const CommandLineMode::Request request{.command = Command::scan, .path = place / "tree"};
        if (!testing::bindMount(place / "other", place / "tree/b")) return "no mount";
        const std::string one = ran(request).lines.at(1);
        for (const char* name : {"a", "c", "d"}) {
            if (!testing::bindMount(place / "other", place / (std::string("tree/") + name)))
                return "";
        }
        return one + "\n" + ran(request).lines.at(1);
    });
    if (!lines) GTEST_SKIP() << "mount namespaces need root";
    EXPECT_EQ(lines->substr(0, lines->find('\n')),
              "1 volume inside was not read: " + place / "tree/b" + ".");
    EXPECT_THAT(*lines,
                ::testing::HasSubstr("\n4 volumes inside were not read: " + place / "tree/"));
    EXPECT_THAT(*lines, ::testing::EndsWith(" and others."));
}

TEST(CommandLineMode, SaysWhyItStops) {
    const TemporaryFolder place;
    place.file("file");
    for (const std::string& path : {place / "file", place / "missing"}) {
        const Output output = ran({.command = Command::index, .path = path});
        EXPECT_EQ(output.status, 66);
        EXPECT_THAT(output.lines, ElementsAre("No folder at " + path + "."));
    }
    const std::string beyondTheLimit = place / std::string(300, 'x');
    EXPECT_THAT(ran({.command = Command::scan, .path = beyondTheLimit}).lines,
                ElementsAre("No folder at " + beyondTheLimit + " (file name too long)."));
    place.folder("closed/inside");
    place.permissions("closed", 0);
    EXPECT_EQ(
        testing::asOrdinaryUser([&] {
            return ran({.command = Command::scan, .path = place / "closed/inside"}).lines.at(0);
        }),
        "No folder at " + place / "closed/inside" + " (permission denied).");
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  const Output output = ran({.command = Command::scan, .path = place / "closed"});
                  return fmt::format("{} {}", output.status, output.lines.at(0));
              }),
              "1 Stopped: " + DiskTreeScanner::description(DiskTreeScanner::Unreadable{
                                  FileURL::folder(place / "closed"), SystemError{EACCES}}));
}

/// The executable beside the tests' own folder.
struct Process {
    int status;
    std::string output;
};

/// Runs a shell command in which "$T" is the executable.
Process shell(const std::string& command) {
    std::string output;
    FILE* stream = ::popen(("T='" TIDYRO_EXECUTABLE "'; " + command).c_str(), "r");
    char buffer[4096];
    while (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), stream)) {
        output.append(buffer, got);
    }
    return {.status = WEXITSTATUS(::pclose(stream)), .output = output};
}

TEST(Executable, EndsWithTheStatusAndTheStreamThatScriptsExpect) {
    const TemporaryFolder place;
    place.file("x");
    const std::string usage = std::string(CommandLineMode::usageText) + "\n";
    EXPECT_EQ(shell("$T --cli scan 2>/dev/null").output, "");
    EXPECT_EQ(shell("$T --cli scan 2>&1").output, usage);
    EXPECT_EQ(shell("$T --cli scan 2>&1").status, 64);
    EXPECT_THAT(shell("$T 2>&1").output, ::testing::EndsWith(usage));
    EXPECT_EQ(shell("$T 2>/dev/null").status, 64);
    EXPECT_EQ(shell("$T --cli scan " + place / "x").status, 66);
    EXPECT_EQ(shell("$T --cli scan " + place.path()).status, 0);
    // A working folder that is gone leads nowhere, not to the root.
    place.folder("gone");
    const Process gone = shell("cd " + place / "gone" + " && rmdir ../gone && $T --cli scan a/.");
    EXPECT_EQ(gone.status, 66);
    EXPECT_EQ(gone.output, "No folder at a (the working folder is gone).\n");
    // A file that may not grow.
    place.folder("kept");
    EXPECT_EQ(shell("(ulimit -f 0; XDG_DATA_HOME=" + place / "kept" + " $T --cli snapshot " +
                    place / "x/.." + " 2>&1) >/dev/null; find " + place / "kept" + " -type f")
                  .output,
              "");
    // A reader that has ended before the first line.
    EXPECT_EQ(
        shell("{ { $T --cli scan " + place.path() + " 2>&3; echo $? >&3; } | true; } 3>&1").output,
        "0\n");
#ifdef __linux__
    const Process full = shell("$T --cli scan " + place.path() + " 2>&1 >/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.output, "The output could not be written (No space left on device).\n");
#endif
}

} // namespace
} // namespace tidyro
