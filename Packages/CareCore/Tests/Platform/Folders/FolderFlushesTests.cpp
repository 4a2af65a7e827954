#include "Platform/Folders/FolderFlushes.h"

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Files/FileMetadata.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using tidyro::testing::TemporaryFolder;
using Side = FolderFlushes::Side;

/// Writes down what is flushed. A flush of a volume takes as long as the test says.
struct WrittenDownFlushes final : FolderChanges {
    const TemporaryFolder& place;
    std::vector<std::string> flushed;
    double now = 0;
    double secondsForVolume = 0;
    int failure = 0;

    explicit WrittenDownFlushes(const TemporaryFolder& here) : place(here) {}

    Changed renameNeverReplacing(const EntryName&, const EntryName&) override { return {}; }
    Changed renameReplacing(const EntryName&, const EntryName&) override { return {}; }
    Changed link(const EntryName&, const EntryName&) override { return {}; }
    Changed makeEmptyFile(const EntryName&) override { return {}; }
    Changed makeFolder(const EntryName&, unsigned) override { return {}; }
    Changed removeFile(const EntryName&) override { return {}; }
    Changed removeFolder(const EntryName&) override { return {}; }
    Changed flush(const FolderDescriptor& folder) override { return writeDown(nameOf(folder)); }
    Changed flushVolume(const FolderDescriptor& folder) override {
        now += secondsForVolume;
        const auto here = fileMetadata(place.path());
        const auto seen = fileMetadata(folder.fd());
        return writeDown(areOnOneMount(*here, *seen) ? "volume" : "other volume");
    }
    [[nodiscard]] std::vector<std::string> take() { return std::exchange(flushed, {}); }

  private:
    Changed writeDown(const std::string& what) {
        if (failure != 0) return std::unexpected(ChangeError::fromSystem({failure}));
        flushed.push_back(what);
        return {};
    }
    [[nodiscard]] std::string nameOf(const FolderDescriptor& folder) const {
        for (const auto& entry : fs::directory_iterator(place.path())) {
            const auto seen = fileMetadata(entry.path().string());
            if (seen && seen->identity == fileMetadata(folder.fd())->identity) {
                return entry.path().filename().string();
            }
        }
        return "unknown";
    }
};

struct FlushesBench {
    TemporaryFolder place;
    WrittenDownFlushes changes{place};
    FolderFlushes flushes{changes, [this] { return changes.now; }};

    void note(const std::string& name, Side side) {
        place.folder(name);
        EXPECT_TRUE(flushes.note(*FolderDescriptor::openRoot(place / name), side));
    }
    /// Another flush of the same volume takes too long, and from then on it is slow.
    void makeSlow() {
        note("any", Side::left);
        changes.secondsForVolume = 1.5;
        EXPECT_TRUE(flushes.flush());
        changes.secondsForVolume = 0;
        EXPECT_THAT(changes.take(), ElementsAre("volume"));
    }
};

std::ptrdiff_t openDescriptors() {
    return std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator());
}

TEST(FolderFlushes, FlushEachVolumeOnceHoweverManyFoldersChanged) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs another volume";
    FlushesBench bench;
    EXPECT_TRUE(bench.flushes.flush());
    EXPECT_THAT(bench.changes.take(), IsEmpty()) << "nothing was changed";
    const std::ptrdiff_t before = openDescriptors();
    for (int i = 0; i < 40; ++i) {
        bench.note("from" + std::to_string(i), Side::left);
        bench.note("to" + std::to_string(i), Side::entered);
    }
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_TRUE(bench.flushes.note(*FolderDescriptor::openRoot("/dev"), Side::left));
    bench.changes.secondsForVolume = FolderFlushes::maxSecondsForVolume; // not longer than that
    EXPECT_TRUE(bench.flushes.flush());
    EXPECT_THAT(bench.changes.take(), UnorderedElementsAre("volume", "other volume"));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(bench.flushes.flush());
    EXPECT_THAT(bench.changes.take(), IsEmpty()) << "all of it is on the disk already";
    bench.note("to1", Side::entered);
    EXPECT_TRUE(bench.flushes.flush());
    EXPECT_THAT(bench.changes.take(), ElementsAre("volume"));
}

TEST(FolderFlushes, FlushTheFoldersOfASlowVolumeLeftBeforeEntered) {
    FlushesBench bench;
    bench.place.folder("any");
    const auto any = FolderDescriptor::openRoot(bench.place / "any");
    EXPECT_FALSE(bench.flushes.isFlushedOneByOne(*any));
    bench.makeSlow();
    EXPECT_TRUE(bench.flushes.isFlushedOneByOne(*any));
    // Made one after another, so that neither names nor numbers are in the order of the sides.
    bench.note("a to", Side::entered);
    bench.note("b from", Side::left);
    bench.note("c to", Side::entered);
    bench.note("d from", Side::left);
    bench.note("d from", Side::left);
    bench.note("both", Side::left);
    bench.note("both", Side::entered);
    EXPECT_TRUE(bench.flushes.flush());
    const auto flushed = bench.changes.take();
    ASSERT_EQ(flushed.size(), 6U) << "each once a side";
    EXPECT_THAT(std::vector(flushed.begin(), flushed.begin() + 3),
                UnorderedElementsAre("b from", "d from", "both"));
    EXPECT_THAT(std::vector(flushed.begin() + 3, flushed.end()),
                UnorderedElementsAre("a to", "c to", "both"));
    EXPECT_TRUE(bench.flushes.flush());
    EXPECT_THAT(bench.changes.take(), IsEmpty());
}

TEST(FolderFlushes, LeaveOutAFolderThatIsGone) {
    FlushesBench bench;
    bench.makeSlow();
    bench.note("parent", Side::left);
    bench.place.folder("parent/gone");
    EXPECT_TRUE(
        bench.flushes.note(*FolderDescriptor::openRoot(bench.place / "parent/gone"), Side::left));
    std::filesystem::remove(bench.place / "parent/gone");
    EXPECT_TRUE(bench.flushes.flush());
    EXPECT_THAT(bench.changes.take(), ElementsAre("parent"));
}

TEST(FolderFlushes, FailForEverOnceAFlushFailed) {
    for (const bool isSlow : {false, true}) {
        FlushesBench bench;
        if (isSlow) bench.makeSlow();
        bench.note("from", Side::left);
        bench.changes.failure = EIO;
        EXPECT_EQ(bench.flushes.flush().error(), SystemError{EIO});
        bench.changes.failure = 0;
        bench.note("to", Side::entered);
        EXPECT_EQ(bench.flushes.flush().error(), SystemError{EIO});
        EXPECT_THAT(bench.changes.take(), IsEmpty()) << "it is not even tried";
    }
}

} // namespace
} // namespace tidyro::platform
