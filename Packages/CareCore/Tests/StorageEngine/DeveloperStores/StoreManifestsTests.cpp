#include "StorageEngine/DeveloperStores/StoreManifests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/Base64.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(StoreManifests, takeNoPathForTheNameOfAFile) {
    const std::string digest(64, 'a');
    EXPECT_THAT(ollamaBlobNames(R"({"layers":[{"digest":"sha256:../../../../etc/passwd"},
        {"digest":"sha256:)" + digest +
                                R"("},{"digest":7},"x",{"digest":"md5:1"}]})"),
                ::testing::Optional(ElementsAre("sha256-" + digest)));
    for (const char* none : {"", "[]", "{}", R"({"layers":{}})", R"({"layers":[)"}) {
        EXPECT_EQ(ollamaBlobNames(none), std::nullopt) << none;
    }

    const auto package = [](const std::string& name, const std::string& entry) {
        return pnpmPackage("{\"name\":\"" + name +
                           "\",\"version\":\"1\",\"files\":{\"f\":" + entry + "}}");
    };
    for (const std::string& entry :
         {std::string("7"), std::string(R"({"integrity":"sha512-../.."})"),
          std::string(R"({"integrity":"sha1-AAAA"})"),
          "{\"integrity\":\"sha512-" + base64Text(std::string(63, 'a')) + "\"}"}) {
        const auto read = package("left-pad", entry);
        ASSERT_TRUE(read) << entry;
        EXPECT_EQ(read->name, "left-pad@1");
        EXPECT_THAT(read->files, IsEmpty()) << entry;
    }
    for (const char* name : {"", "two words", "line\\nbreak", "\\u001b[2J"}) {
        EXPECT_FALSE(package(name, "{}")) << name;
    }
    EXPECT_FALSE(package(std::string(10'000, 'a'), "{}"));

    EXPECT_EQ(huggingFaceBlob("../../blobs/abc", 2), "abc");
    EXPECT_EQ(huggingFaceBlob("../../../blobs/abc", 3), "abc");
    for (const char* target : {"", "../../blobs/", "../../blobs/..", "../../blobs/a/b",
                               "../blobs/abc", "../../../blobs/abc", "/blobs/abc"}) {
        EXPECT_EQ(huggingFaceBlob(target, 2), std::nullopt) << target;
    }
}

TEST(StoreManifests, readEverySpellingOfAnIndex) {
    const std::string digest(64, 'd');
    const std::string hex = "64646464646464";
    const std::string rest(112, '0');
    const std::string integrity = R"("integrity":"sha512-)" + base64Text(digest) + "\"";
    const std::string usual = R"({"name":"@a/b","version":"1.0","requiresBuild":true,"files":{)"
                              R"("x.js":{"checkedAt":1732213123456,)" +
                              integrity + R"(,"mode":420,"size":0},"bin":{)" + integrity +
                              R"(,"mode":493}}})";
    const auto plain = pnpmPackage(usual);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->name, "@a/b@1.0");
    EXPECT_THAT(plain->files, ElementsAre(pnpmFileKey("64", hex + rest),
                                          pnpmFileKey("64", hex + rest + "-exec")));
    for (std::size_t length = 0; length < usual.size(); ++length) {
        ASSERT_EQ(pnpmPackage(usual.substr(0, length)), std::nullopt) << length;
    }
    // Each adds something that the quick way through does not know.
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = usual;
        return text.replace(text.find(from), from.size(), to);
    };
    for (const std::string& text :
         {with("x.js", "\u00E9.js"), with("x.js", "a\\\"}b"),
          with(R"(,"mode":420)", ", \"mode\":420"),
          with(R"("requiresBuild":true)", R"("sideEffects":{"linux":{"y":{}}})"),
          with("\"size\":0", "\"size\":1.5e3"), usual + "\n"}) {
        const auto package = pnpmPackage(text);
        ASSERT_TRUE(package) << text;
        EXPECT_EQ(package->name, plain->name);
        EXPECT_THAT(package->files, ::testing::UnorderedElementsAreArray(plain->files)) << text;
    }
    for (const std::string& text :
         {usual + "}", usual + "x", with("\"size\":0", "\"size\":00"), with("true", "trues"),
          with("x.js", std::string("x\0js", 4)), with("x.js", "x\njs"), with("x.js", "x\xFFjs")}) {
        EXPECT_EQ(pnpmPackage(text), std::nullopt) << text;
    }
    for (const auto& [folder, name] : {std::pair{std::string("6"), hex + rest},
                                       {"64", hex + rest + "0"},
                                       {"64", hex + rest.substr(1)},
                                       {"6g", hex + rest},
                                       {"64", "6464646464646." + rest}}) {
        EXPECT_EQ(pnpmFileKey(folder, name), std::nullopt) << folder << name;
    }
}

TEST(StoreManifests, areReadHoweverMuchTheyList) {
    // Somebody may have put them there; a time that grows with the square would take minutes.
    std::string keys;
    while (keys.size() < maxStoreManifestBytes - 100) {
        keys += (keys.empty() ? "\"" : ",\"") + std::to_string(keys.size()) + "\":{}";
    }
    const auto index = [&](const std::string& odd) {
        return "{\"name\":\"a\"," + odd + "\"version\":\"1\",\"files\":{" + keys + "}}";
    };
    EXPECT_EQ(pnpmPackage(index(""))->name, "a@1");
    EXPECT_EQ(pnpmPackage(index(" "))->name, "a@1");
    EXPECT_THAT(ollamaBlobNames("{\"layers\":[]," + keys + "}"), ::testing::Optional(IsEmpty()));
}

TEST(StoreManifests, nameThingsAsTheirOwnersDo) {
    EXPECT_EQ(huggingFaceRepository("models--org--a-model"), "org/a-model");
    EXPECT_EQ(huggingFaceRepository("models--gpt2"), "gpt2");
    EXPECT_EQ(huggingFaceRepository("spaces--org--demo"), "space/org/demo");
    for (const char* folder : {"models--", "models", ".locks", "version.txt"}) {
        EXPECT_EQ(huggingFaceRepository(folder), std::nullopt) << folder;
    }
    EXPECT_EQ(ollamaModelName("hf.co/org/model/q4"), "hf.co/org/model:q4");
    EXPECT_EQ(ollamaModelName("registry.ollama.ai/library/llama3"), std::nullopt);
    EXPECT_EQ(goModuleName("github.com/!burnt!sushi/toml@v1.0.0-!r!c1"),
              "github.com/BurntSushi/toml@v1.0.0-RC1");
    for (const char* folder : {"a!", "a!!b", "a!B"}) EXPECT_EQ(goModuleName(folder), folder);
}

} // namespace
} // namespace tidyro
