#include <gtest/gtest.h>

#include "App/CommandLineMode.h"

namespace tidyro {
namespace {

using Command = CommandLineMode::Command;
using ModeRequest = CommandLineMode::Request;
using Arguments = std::vector<std::string>;

CommandLineMode::ParseResult parsed(Arguments arguments) {
    arguments.insert(arguments.begin(), "/bin/Tidyro");
    return CommandLineMode::parse(arguments, "/home/ada");
}

TEST(CommandLineModeParsing, ThatAreWellFormedMakeARequest) {
    struct Case {
        Arguments arguments;
        ModeRequest request;
    };
    const Case cases[] = {
        {{"--cli", "scan", "/a"}, {.command = Command::scan, .path = "/a"}},
        {{"ignored", "-x", "--cli", "scan", "~"}, {.command = Command::scan, .path = "/home/ada"}},
        {{"--cli", "snapshot", "~/Music/../Desktop/"},
         {.command = Command::snapshot, .path = "/home/ada/Desktop"}},
        {{"--cli", "scan", "/~/./b//"}, {.command = Command::scan, .path = "/~/b"}},
        {{"--cli", "scan", "/a", "--largest", "5000"},
         {.command = Command::scan, .path = "/a", .largest = 1'000}},
        {{"--cli", "scan", "--largest", "+7", "/a"},
         {.command = Command::scan, .path = "/a", .largest = 7}},
        {{"--cli", "index", "/a", "--largest", "0009223372036854775807"},
         {.command = Command::index, .path = "/a", .largest = 1'000}},
        {{"--cli", "duplicates", "/a", "--min-size", "0", "--include-system"},
         {.command = Command::duplicates, .path = "/a", .minimumBytes = 1, .includeSystem = true}},
        {{"--cli", "duplicates", "/a", "--min-size", "-000"},
         {.command = Command::duplicates, .path = "/a", .minimumBytes = 1}},
        {{"--cli", "duplicates", "/a", "--min-size", "+18446744073709551615"},
         {.command = Command::duplicates, .path = "/a", .minimumBytes = ~0ULL}},
        {{"--cli", "index", "/a", "--query", "--largest", "--query", ""},
         {.command = Command::index, .path = "/a", .queries = {"--largest", ""}}},
        {{"--cli", "scan", "-Flag", "YES", "/a"}, {.command = Command::scan, .path = "/a"}},
        {{"--cli", "scan", "-Flag", "-Other", "x", "/a", "-"},
         {.command = Command::scan, .path = "/a"}},
        {{"--cli", "scan", "/a", "--cli", "scan"}, {.command = Command::scan, .path = "/a"}},
        {{"--cli", "scan", "/not utf8 \xFF"}, {.command = Command::scan, .path = "/not utf8 \xFF"}},
    };
    for (const Case& each : cases) {
        const auto result = parsed(each.arguments);
        ASSERT_TRUE(std::holds_alternative<ModeRequest>(result)) << each.request.path;
        EXPECT_EQ(std::get<ModeRequest>(result), each.request)
            << std::get<ModeRequest>(result).path;
    }
    const auto relative = parsed({"--cli", "scan", "~ada/x"});
    EXPECT_TRUE(std::get<ModeRequest>(relative).path.ends_with("/~ada/x"));
    EXPECT_TRUE(std::get<ModeRequest>(relative).path.starts_with('/'));
}

TEST(CommandLineModeParsing, ThatAreMalformedGetTheUsageText) {
    const Arguments cases[] = {
        {"--cli"},
        {"--cli", "Scan", "/a"},
        {"--cli", "-v", "scan", "/a"},
        {"--cli", "scan"},
        {"--cli", "scan", ""},
        {"--cli", "scan", "/a", "/b"},
        {"--cli", "scan", "/a", "--largest"},
        {"--cli", "scan", "/a", "--largest", "0"},
        {"--cli", "scan", "/a", "--largest", "-3"},
        {"--cli", "scan", "/a", "--largest", "x"},
        {"--cli", "scan", "/a", "--largest", "7x"},
        {"--cli", "scan", "/a", "--largest", " 7"},
        {"--cli", "scan", "/a", "--largest", "+"},
        {"--cli", "scan", "/a", "--largest", "+-7"},
        {"--cli", "scan", "/a", "--largest", ""},
        {"--cli", "scan", "/a", "--largest", "9223372036854775808"},
        {"--cli", "duplicates", "/a", "--min-size", "-5"},
        {"--cli", "duplicates", "/a", "--min-size", "-"},
        {"--cli", "duplicates", "/a", "--min-size", "18446744073709551616"},
        {"--cli", "index", "/a", "--query"},
    };
    for (const Arguments& each : cases) {
        EXPECT_EQ(parsed(each),
                  CommandLineMode::ParseResult(CommandLineUsage{CommandLineMode::usageText}))
            << each.back();
    }
    EXPECT_EQ(CommandLineMode::usageText.size(), 489U);
}

TEST(CommandLineModeParsing, WithoutTheSwitchAskForNothing) {
    for (const Arguments& each : {Arguments{}, {"scan", "/a"}, {"--CLI", "scan", "/a"}}) {
        EXPECT_EQ(parsed(each), CommandLineMode::ParseResult(CommandLineNotRequested{}));
    }
}

} // namespace
} // namespace tidyro
