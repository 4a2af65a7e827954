#include "Platform/Folders/FolderReading.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/TemporaryFolder.h"

namespace tidyro::platform {
namespace {

using testing::TemporaryFolder;

std::expected<std::vector<std::string>, SystemError> namesInFolder(const std::string& path) {
    std::vector<std::string> names;
    const auto root = FolderDescriptor::openRoot(path);
    if (!root) return std::unexpected(root.error());
    FolderLister lister({.isAskedForClones = isKnownToShareBlocks(*root)});
    lister.begin(*root);
    while (const FolderEntry* entry = lister.next()) names.emplace_back(entry->name);
    if (lister.error().code != 0) return std::unexpected(lister.error());
    return names;
}

TEST(FolderReading, ListsAFolderAndTellsWhyItCannot) {
    const TemporaryFolder place;
    place.folder("folder/inner");
    place.file("folder/.hidden", "12345");
    place.link("folder/link", "nowhere");
    EXPECT_THAT(namesInFolder(place / "folder").value(),
                ::testing::UnorderedElementsAre("inner", ".hidden", "link"));
    EXPECT_EQ(namesInFolder(place / "none").error(), SystemError{ENOENT});
    EXPECT_EQ(namesInFolder(place / "folder/.hidden").error(), SystemError{ENOTDIR});
}

TEST(FolderReading, GoesDownByNameWithoutFollowingALink) {
    const TemporaryFolder place;
    place.folder("a/b/c");
    place.link("a/link", "b");
    const auto root = FolderDescriptor::openRoot(place.path());
    ASSERT_TRUE(root);
    EXPECT_EQ(root->openBelow("a/b/c")->facts()->identity,
              FolderDescriptor::openRoot(place / "a/b/c")->facts()->identity);
    EXPECT_TRUE(FolderDescriptor::openRoot(place / "a/link")) << "the root's own link is followed";
    for (const auto& refused : {root->openBelow("a/link/c"), root->open("a")->open("link")}) {
        ASSERT_FALSE(refused);
        EXPECT_TRUE(hasVanished(refused.error())) << refused.error().description();
    }
}

TEST(FolderReading, EndsOnceItIsCancelled) {
    const TemporaryFolder place;
    place.file("file");
    const std::atomic<bool> cancelled = true;
    FolderLister lister({.cancelled = &cancelled});
    const auto root = FolderDescriptor::openRoot(place.path());
    lister.begin(*root);
    EXPECT_EQ(lister.next(), nullptr);
    EXPECT_EQ(lister.error(), SystemError{ECANCELED});
}

} // namespace
} // namespace tidyro::platform
