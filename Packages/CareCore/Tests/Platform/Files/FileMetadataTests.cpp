#include "Platform/Files/FileMetadata.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Support/OtherCircumstances.h"

namespace tidyro::platform {
namespace {

using testing::TemporaryFolder;

TEST(FileMetadata, TellsWhatTheSystemKnowsToTheNanosecond) {
    const TemporaryFolder place;
    place.file("file", "12345");
    place.hardLink("second name", "file");
    const std::array<timespec, 2> times{timespec{.tv_sec = 1, .tv_nsec = 2},
                                        timespec{.tv_sec = 1'700'000'000, .tv_nsec = 123'456'700}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (place / "file").c_str(), times.data(), 0), 0);
    struct stat expected{};
    ASSERT_EQ(::stat((place / "file").c_str(), &expected), 0);

    const auto seen = fileMetadata(place / "second name");
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->kind, ItemKind::regularFile);
    EXPECT_EQ(seen->byteCount, 5U);
    EXPECT_EQ(seen->linkCount, 2U);
    EXPECT_EQ(seen->ownerUserID, ::geteuid());
    EXPECT_EQ(seen->identity.device, expected.st_dev);
    EXPECT_EQ(seen->identity.inode, expected.st_ino);
    EXPECT_EQ(seen->modified, Timestamp::since1970(1'700'000'000, 123'456'700));
    EXPECT_NE(seen->modified, Timestamp::since1970(1'700'000'000, 123'457'700));
    if (seen->created) {
        EXPECT_GT(*seen->created, Timestamp::now().adding(-3'600));
        EXPECT_LT(*seen->created, Timestamp::now().adding(3'600));
    }
}

TEST(FileMetadata, LooksAtTheItemItselfByPathAndByName) {
    const TemporaryFolder place;
    place.hole("hole", 50'000'000);
    place.folder("folder");
    place.pipe("pipe");
    place.link("link", "hole");
    place.link("dangling", "nothing");
    const auto folder = FolderDescriptor::openRoot(place.path());
    ASSERT_TRUE(folder);
    for (const auto& [name, kind] : {std::pair{"hole", ItemKind::regularFile},
                                     {"folder", ItemKind::folder},
                                     {"pipe", ItemKind::other},
                                     {"link", ItemKind::link},
                                     {"dangling", ItemKind::link}}) {
        const auto byPath = fileMetadata(place / name);
        const auto byName = fileMetadata(*folder, name);
        ASSERT_TRUE(byPath && byName) << name;
        EXPECT_EQ(byPath->kind, kind) << name;
        EXPECT_EQ(byName->kind, kind) << name;
        EXPECT_EQ(byPath->identity, byName->identity) << name;
        EXPECT_EQ(byPath->mount, byName->mount) << name;
    }
    EXPECT_EQ(fileMetadata(place / "hole")->byteCount, 50'000'000U);
    EXPECT_LT(fileMetadata(place / "hole")->allocatedBytes, 1'000'000U);
    EXPECT_EQ(fileMetadata(place / "none").error().code, ENOENT);
    EXPECT_EQ(fileMetadata(*folder, "none").error().code, ENOENT);
    EXPECT_EQ(fileMetadata(place / "hole/below").error().code, ENOTDIR);
    EXPECT_TRUE(isReadable(place / "dangling")) << "the link itself is";
}

TEST(FileMetadata, AsksTheSystemWhatMayBeRead) {
    const TemporaryFolder place;
    place.file("open", "x");
    place.file("closed", "x");
    place.file("folder/inside", "x");
    place.permissions("open", 0644);
    place.permissions("closed", 0);
    place.permissions("folder", 0);
    const std::string told = testing::asOrdinaryUser([&] {
        const auto folder = FolderDescriptor::openRoot(place.path());
        std::string text;
        for (const char* name : {"open", "closed", "folder/inside", "none"}) {
            text += isReadable(place / name) ? "y" : "n";
            text += isReadable(*folder, name) ? "y" : "n";
        }
        const auto hidden = fileMetadata(place / "folder/inside");
        return text + (fileMetadata(place / "closed") ? " seen " : " not seen ") +
               (hidden ? "seen" : hidden.error().description());
    });
    EXPECT_EQ(told, "yynnnnnn seen Permission denied");
    place.permissions("folder", 0755);
}

TEST(FileMetadata, ResolvesPathsAsTheStandardLibraryDoes) {
    const TemporaryFolder place;
    place.file("folder/file", "x");
    place.folder("folder/shut");
    place.link("folder/to file", "file");
    place.link("folder/nowhere", "none");
    place.link("folder/round", "round");
    place.link("way", "folder");
    for (const char* name :
         {"folder", "folder/file", "folder/to file", "folder/nowhere", "folder/round", "way",
          "way/file", "way/to file", "folder/none", "folder/file/below", "folder/../way/file",
          "folder//file", "folder/", "folder/./file", "way/../folder/file"}) {
        std::error_code failed;
        const auto expected = std::filesystem::canonical(place / name, failed);
        const auto found = realPath(place / name);
        EXPECT_EQ(found.has_value(), !failed) << name;
        EXPECT_EQ(found.value_or(""), failed ? "" : expected.string()) << name;
    }
#ifdef __linux__
    EXPECT_TRUE(isWithoutLinks(place / "folder/file"));
    for (const char* name : {"folder/to file", "way", "way/file", "folder/nowhere", "folder/none"})
        EXPECT_FALSE(isWithoutLinks(place / name)) << name;
#endif
}

} // namespace
} // namespace tidyro::platform
