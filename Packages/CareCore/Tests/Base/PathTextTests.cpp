#include "Base/PathText.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/FileURL.h"

namespace tidyro {
namespace {

using namespace std::string_view_literals;
using Pairs = std::vector<std::pair<std::string_view, std::string_view>>;

TEST(PathText, StandardizesAndStaysSo) {
    for (const auto& [given, standard] : Pairs{{"/a/./b//../c/", "/a/c"},
                                               {"///", "/"},
                                               {"", "."},
                                               {"/a/b/../../..", "/"},
                                               {"a/..", "."},
                                               {"../a/../..", "../.."},
                                               {"./a//b/", "a/b"},
                                               {"/..a/.../.b.", "/..a/.../.b."},
                                               {"/\xFF\xFE/./\xC3", "/\xFF\xFE/\xC3"}}) {
        EXPECT_EQ(path::standardized(given), standard) << given;
        EXPECT_EQ(path::standardized(standard), standard) << given;
        EXPECT_EQ(path::isStandardized(standard), standard.starts_with('/')) << standard;
        EXPECT_FALSE(path::isStandardized(given) && given != standard) << given;
    }
    EXPECT_EQ(path::absolute("x/../y"), (std::filesystem::current_path() / "y").string());
}

TEST(PathText, TakesPathsApart) {
    struct Case {
        std::string_view whole, last, parent, extension;
    };
    for (const auto& [whole, last, parent, extension] :
         std::vector<Case>{{"/", "/", "/", ""},
                           {"/a", "a", "/", ""},
                           {"/a.d/b.tar.gz/", "b.tar.gz", "/a.d", "gz"},
                           {"/a/.app", ".app", "/a", ""},
                           {"/a/..app", "..app", "/a", "app"},
                           {"/a/b.", "b.", "/a", ""}}) {
        EXPECT_EQ(path::lastComponent(whole), last) << whole;
        EXPECT_EQ(path::parent(whole), parent) << whole;
        EXPECT_EQ(path::extensionOf(last), extension) << whole;
    }
    EXPECT_EQ(path::components("//a/b//c/"), (std::vector<std::string_view>{"a", "b", "c"}));
    EXPECT_TRUE(path::components("/").empty());
}

TEST(PathText, TellsWhatLiesInside) {
    EXPECT_EQ(path::below("/a/b/c", "/a"), "b/c");
    EXPECT_EQ(path::below("/a", "/a"), "");
    EXPECT_EQ(path::below("/a/b", "/"), "a/b");
    for (const auto& [whole, root] : Pairs{{"/a/b/c", "/a"}, {"/a", "/a"}, {"/a", "/"}}) {
        EXPECT_TRUE(path::isInsideOrEqual(whole, root)) << whole << " in " << root;
    }
    for (const auto& [whole, root] :
         Pairs{{"/ab", "/a"}, {"/a", "/a/b"}, {"/A", "/a"}, {"a", "/"}}) {
        EXPECT_FALSE(path::isInsideOrEqual(whole, root)) << whole << " in " << root;
    }
}

TEST(FileURL, KeepsEveryByteThroughItsText) {
    std::string name;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') name += static_cast<char>(byte);
    }
    for (const FileURL& url : {FileURL(), FileURL::file("/" + name), FileURL::folder("/" + name)}) {
        EXPECT_EQ(FileURL::fromText(url.text()), url) << url.text();
    }
    EXPECT_EQ(FileURL::folder("/home/ada/.cache").appendingFolder("a b\xE9%").text(),
              "file:///home/ada/.cache/a%20b%E9%25/");
}

TEST(FileURL, ReadsOnlyFileURLs) {
    for (const std::string_view text :
         {"file:///b%FF/", "file://localhost/b%fF/", "file:///a/..//b%ff/"}) {
        EXPECT_EQ(FileURL::fromText(text), FileURL::folder("/b\xFF")) << text;
    }
    for (const std::string_view text :
         {""sv, "/a"sv, "file:/a"sv, "file://"sv, "file://a"sv, "file://host/a"sv,
          "file://localhost"sv, "file://localhostess/a"sv, "http:///a"sv, "file:///%"sv,
          "file:///a%4"sv, "file:///%4G"sv, "file:///%-1"sv, "file:///a%00b"sv, "file:///a\0b"sv}) {
        EXPECT_FALSE(FileURL::fromText(text)) << text;
    }
}

TEST(FileURL, MovesThroughFolders) {
    const FileURL file = FileURL::folder("/a//b/").appending("./c/../d.txt");
    EXPECT_EQ(file, FileURL::file("/a/b/d.txt"));
    EXPECT_NE(file, FileURL::folder("/a/b/d.txt"));
    EXPECT_EQ(file.parent(), FileURL::folder("/a/b"));
    EXPECT_EQ(FileURL().parent(), FileURL());
}

} // namespace
} // namespace tidyro
