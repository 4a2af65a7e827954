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
