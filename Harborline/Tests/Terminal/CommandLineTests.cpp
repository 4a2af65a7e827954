#include "Terminal/CommandLine.h"

#include <vector>

#include <gtest/gtest.h>

#include "Support/TemporaryFolder.h"
#include "Terminal/ArgumentReader.h"

namespace tidyro {
namespace {

struct Request {
    std::string folder;
};

CommandLineParse<Request> parse(const std::vector<std::string>& arguments) {
    auto reader = ArgumentReader::behind({"--list", "--show"}, arguments);
    if (!reader) return CommandLineNotRequested{};
    const auto folder = reader->next();
    if (!folder) return CommandLineUsage{"Usage: --list <folder>"};
    return Request{folderArgument(*folder, "/home/ada")};
}

void runIfAsked(const std::vector<std::string>& arguments) {
    const CommandLineParse<Request> parsed = parse(arguments);
    runAndExit(parsed, [](const Request& request, const TextOutput& output) {
        if (!output.confirmFolder(request.folder)) return ExitStatus::noFolder;
        output.line("{} is a folder.", output.shown(request.folder));
        return ExitStatus::succeeded;
    });
}

TEST(CommandLine, EndsTheProcessOnlyWhenItWasRequested) {
    const testing::TemporaryFolder place;
    runIfAsked({});
    runIfAsked({"--cli", "--list", place.path()});
    const auto exits = [](int status) { return ::testing::ExitedWithCode(status); };
    EXPECT_EXIT(runIfAsked({"x", "--list"}), exits(64), "^Usage: --list <folder>\n$");
    EXPECT_EXIT(runIfAsked({"--show", place / "missing"}), exits(66), "^$");
    EXPECT_EXIT(runIfAsked({"--list", place.path()}), exits(0), "^$");
}

TEST(ArgumentReader, ReadsFromTheLeft) {
    const std::vector<std::string> arguments{"a",  "--show", "--list", "7",  "-Flag", "value",
                                             "-B", "-C",     "0",      "-1", "x"};
    auto reader = ArgumentReader::behind({"--list", "--show"}, arguments);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->foundSwitch(), "--show");
    EXPECT_EQ(reader->next(), "--list");
    EXPECT_EQ(reader->nextNumber<int>(), 7);
    EXPECT_EQ(reader->next(), "-Flag");
    reader->skipValue();
    EXPECT_EQ(reader->next(), "-B");
    reader->skipValue();
    EXPECT_EQ(reader->next(), "-C") << "an option is no value";
    EXPECT_EQ(reader->nextMinimumBytes(), 1U);
    EXPECT_EQ(reader->nextMinimumBytes(), std::nullopt);
    EXPECT_EQ(reader->nextNumber<int>(), std::nullopt);
    EXPECT_EQ(reader->next(), std::nullopt);
    reader->skipValue();
}

} // namespace
} // namespace tidyro
