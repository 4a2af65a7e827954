#include "App/DuplicatesCommandLine.h"

#include <vector>

#include <gtest/gtest.h>

#include "Base/JSON.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using Arguments = std::vector<std::string>;

TEST(DuplicatesCommandLine, ReadsItsArguments) {
    const auto parse = [](Arguments arguments) {
        return DuplicatesCommandLine::parse(arguments, "/home/ada");
    };
    for (const Arguments& others :
         {Arguments{"Tidyro", "--cli", "duplicates", "/x"},
          {"Tidyro", "--cli", "index", "/x", "--query", "--find-duplicates"}}) {
        EXPECT_TRUE(std::holds_alternative<CommandLineNotRequested>(parse(others)));
    }
    const std::vector<std::pair<Arguments, DuplicatesCommandLine::Request>> cases{
        {{"Tidyro", "--find-duplicates", "~/x/../y"},
         {.folder = "/home/ada/y", .minimumBytes = 1'000'000}},
        {{"--find-duplicates", "--json", "--min-size", "5", "/x", "--include-system"},
         {.folder = "/x", .minimumBytes = 5, .includeSystem = true, .asJSON = true}},
        {{"--find-duplicates", "/x", "--min-size", "0"}, {.folder = "/x", .minimumBytes = 1}},
        {{"--find-duplicates", "/x", "--min-size", "18446744073709551615"},
         {.folder = "/x", .minimumBytes = UINT64_MAX}}};
    for (const auto& [arguments, request] : cases) {
        EXPECT_EQ(std::get<DuplicatesCommandLine::Request>(parse(arguments)), request)
            << arguments.back();
    }
    for (const Arguments& wrong :
         std::vector<Arguments>{{"--find-duplicates"},
                                {"--find-duplicates", ""},
                                {"--find-duplicates", "/x", "/y"},
                                {"--find-duplicates", "/x", "--min-size"},
                                {"--find-duplicates", "/x", "--min-size", "18446744073709551616"},
                                {"--find-duplicates", "/x", "--unknown"}}) {
        EXPECT_EQ(std::get<CommandLineUsage>(parse(wrong)).text, DuplicatesCommandLine::usageText);
    }
}

TEST(DuplicatesCommandLine, WritesTextOrJSON) {
    const testing::TemporaryFolder place;
    place.file("a", "same");
    place.file("b", "same");
    std::string written;
    const TextOutput output{.write = [&](std::string_view text) { written += text; }};
    const DuplicatesCommandLine::Request all{.folder = place.path(), .minimumBytes = 1};
    EXPECT_EQ(DuplicatesCommandLine::run(all, output), 0);
    EXPECT_TRUE(written.starts_with("Looked at 2 files of 1 byte or more.\n")) << written;
    written.clear();
    EXPECT_EQ(DuplicatesCommandLine::run(
                  {.folder = place.path(), .minimumBytes = 1, .asJSON = true}, output),
              0);
    EXPECT_EQ(JSON::parse(written)["groups"].size(), 1U);
    written.clear();
    EXPECT_EQ(DuplicatesCommandLine::run({.folder = place / "a"}, output), 66);
    EXPECT_EQ(written, "No folder at " + place / "a" + ".\n");
}

} // namespace
} // namespace tidyro
