#include "Platform/Files/DurableFile.h"

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Support/OtherCircumstances.h"

namespace tidyro::platform {
namespace {

using testing::TemporaryFolder;

unsigned modeOf(const std::string& path) {
    struct stat status{};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777U;
}

std::size_t entriesIn(const std::string& folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
}

TEST(DurableFile, ReplacesAFileAsAWholeAndPrivately) {
    const TemporaryFolder place;
    const std::string folder = place / "a/b/c";
    ASSERT_TRUE(makePrivateFolder(folder));
    ASSERT_TRUE(makePrivateFolder(folder)) << "what exists stays";
    EXPECT_EQ(modeOf(folder), 0700U);
    EXPECT_EQ(modeOf(place / "a"), 0700U);
    EXPECT_EQ(modeOf(place.path()), 0755U);

    const std::string path = folder + "/file";
    const std::string large(3'000'000, 'x');
    ASSERT_TRUE(writeDurably(path, "first"));
    ASSERT_TRUE(writeDurably(path, large));
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_EQ(readWholeFile(path, large.size()), large);
    EXPECT_EQ(entriesIn(folder), 1U);
}

TEST(DurableFile, LeavesTheOldFileWhenWritingFails) {
    const TemporaryFolder place;
    place.file("kept", "old");
    const std::string told = testing::inChild([&] {
        // A full disk, as far as this process can tell.
        const rlimit limit{.rlim_cur = 1'000, .rlim_max = 1'000};
        ::signal(SIGXFSZ, SIG_IGN);
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return std::string("no limit");
        const auto written = writeDurably(place / "kept", std::string(2'000, 'n'));
        return written ? "written" : written.error().description();
    });
    EXPECT_EQ(told, "File too large");
    EXPECT_EQ(readWholeFile(place / "kept", 100), "old");
    EXPECT_EQ(entriesIn(place.path()), 1U);
    EXPECT_EQ(writeDurably(place / "no folder/file", "x").error().code, ENOENT);
}

TEST(DurableFile, RefusesWhatIsNoPlainFileOrFolder) {
    const TemporaryFolder place;
    place.file("file", "12345");
    place.pipe("pipe");
    EXPECT_EQ(makePrivateFolder(place / "file").error().code, ENOTDIR);
    EXPECT_EQ(makePrivateFolder(place / "file/below").error().code, ENOTDIR);
#ifdef __linux__
    // A file system that has no folder there and makes none.
    if (testing::isProcMounted()) {
        EXPECT_EQ(makePrivateFolder("/proc/none/below").error().code, ENOENT);
    }
#endif
    EXPECT_EQ(readWholeFile(place / "pipe", 100).error().code, EINVAL);
    EXPECT_EQ(readWholeFile(place.path(), 100).error().code, EINVAL);
    EXPECT_EQ(readWholeFile(place / "missing", 100).error().code, ENOENT);
    EXPECT_EQ(readWholeFile(place / "file", 4).error().code, EFBIG);
    EXPECT_EQ(readWholeFile(place / "file", 5), "12345");
}

} // namespace
} // namespace tidyro::platform
