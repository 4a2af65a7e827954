#include "Base/PathText.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/FileURL.h"

namespace tidyro {
namespace {

using namespace std::string_view_literals;

TEST(PathText, StandardizesAndStaysSo) {
    struct Case {
        std::string_view given, standard;
    };
    for (const auto& [given, standard] :
         std::vector<Case>{{"/a/./b//../c/", "/a/c"},
                           {"/", "/"},
                           {"///", "/"},
                           {"", "."},
                           {"/..", "/"},
                           {"/../../a", "/a"},
                           {"/a/b/../../..", "/"},
                           {"a/..", "."},
                           {"../a/../..", "../.."},
                           {"./a//b/", "a/b"},
                           {"/..a/.../.b.", "/..a/.../.b."},
                           {"/\xFF\xFE/./\xC3", "/\xFF\xFE/\xC3"}}) {
        EXPECT_EQ(path::standardized(given), standard) << given;
        EXPECT_EQ(path::standardized(standard), standard) << given;
    }
    EXPECT_EQ(path::absolute("/a/../b/"), "/b");
    EXPECT_EQ(path::absolute("x/../y"), (std::filesystem::current_path() / "y").string());
}

TEST(PathText, TakesPathsApart) {
    struct Case {
        std::string_view whole, last, parent, extension;
    };
    for (const auto& [whole, last, parent, extension] :
         std::vector<Case>{{"/", "/", "/", ""},
                           {"/a", "a", "/", ""},
                           {"/a/b.tar.gz", "b.tar.gz", "/a", "gz"},
                           {"/a.d/b/", "b", "/a.d", ""},
                           {"/a/.app", ".app", "/a", ""},
                           {"/a/..app", "..app", "/a", "app"},
                           {"/a/b.", "b.", "/a", ""},
                           {"/a/b.J\xFF", "b.J\xFF", "/a", "J\xFF"}}) {
        EXPECT_EQ(path::lastComponent(whole), last) << whole;
        EXPECT_EQ(path::parent(whole), parent) << whole;
        EXPECT_EQ(path::extensionOf(last), extension) << whole;
    }
    EXPECT_EQ(path::components("//a/b//c/"), (std::vector<std::string_view>{"a", "b", "c"}));
    EXPECT_TRUE(path::components("/").empty());
    EXPECT_EQ(path::joined("/", "a"), "/a");
    EXPECT_EQ(path::joined("/a", "b"), "/a/b");
}

TEST(PathText, TellsWhatLiesInside) {
    struct Case {
        std::string_view whole, root;
        std::optional<std::string_view> below;
    };
    for (const auto& [whole, root, below] : std::vector<Case>{{"/a/b/c", "/a", "b/c"},
                                                              {"/a", "/a", ""},
                                                              {"/", "/", ""},
                                                              {"/a/b", "/", "a/b"},
                                                              {"/ab", "/a", std::nullopt},
                                                              {"/a", "/a/b", std::nullopt},
                                                              {"/A/b", "/a", std::nullopt},
                                                              {"a", "/", std::nullopt}}) {
        EXPECT_EQ(path::isInsideOrEqual(whole, root), below.has_value()) << whole << " in " << root;
        if (below) {
            EXPECT_EQ(path::below(whole, root), *below) << whole << " in " << root;
        }
    }
}

TEST(FileURL, KeepsEveryByteThroughItsText) {
    std::string everyByte;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') everyByte += static_cast<char>(byte);
    }
    for (const FileURL& url :
         {FileURL(), FileURL::file("/" + everyByte), FileURL::folder("/a/" + everyByte)}) {
        EXPECT_EQ(FileURL::fromText(url.text()), url) << url.text();
        EXPECT_EQ(
            url.text().find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "0123456789-._~/%:"),
            std::string::npos);
    }
    EXPECT_EQ(FileURL::folder("/home/ada/.cache").appending("a b\xE9%").text(),
              "file:///home/ada/.cache/a%20b%E9%25");
    EXPECT_EQ(FileURL::folder("/a").text(), "file:///a/");
}

TEST(FileURL, ReadsOnlyFileURLs) {
    const FileURL b = FileURL::folder("/b\xFF");
    for (const std::string_view text :
         {"file:///b%FF/", "file://localhost/b%fF/", "file:///a/..//b%ff/"}) {
        EXPECT_EQ(FileURL::fromText(text), b) << text;
    }
    for (const std::string_view text :
         {"", "/a", "file:", "file:/a", "file://", "file://a", "file://host/a", "file://localhost",
          "file://localhostess/a", "FILE:///a", "http:///a", "file:///%", "file:///a%4",
          "file:///%4G", "file:///%-1", "file:///a%00b"}) {
        EXPECT_FALSE(FileURL::fromText(text)) << text;
    }
    EXPECT_FALSE(FileURL::fromText("file:///a\0b"sv));
}

TEST(FileURL, MovesThroughFolders) {
    const FileURL file = FileURL::folder("/a//b/").appending("./c/../d.txt");
    EXPECT_EQ(file, FileURL::file("/a/b/d.txt"));
    EXPECT_NE(file, FileURL::folder("/a/b/d.txt"));
    EXPECT_EQ(file.lastComponent(), "d.txt");
    EXPECT_EQ(file.parent(), FileURL::folder("/a/b"));
    EXPECT_EQ(FileURL().parent(), FileURL());
    EXPECT_EQ(FileURL().appendingFolder("../x"), FileURL::folder("/x"));
}

} // namespace
} // namespace tidyro
