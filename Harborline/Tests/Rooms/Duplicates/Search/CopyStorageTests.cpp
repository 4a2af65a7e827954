#include "Rooms/Duplicates/Search/CopyStorage.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"
#include "Rooms/Duplicates/Search/QuietSearch.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::MountedImage;
using testing::quietEngine;
using testing::runQuietly;
using testing::searching;
using testing::TemporaryFolder;

std::uint64_t freeBytes(const TemporaryFolder& place) {
    return std::filesystem::space(place.path()).free;
}

/// What the file system has more when a copy is gone. It gives blocks back a little later.
std::uint64_t freedByRemoving(const std::string& name, std::uint64_t atLeast,
                              const TemporaryFolder& place) {
    static_cast<void>(runQuietly("sync -f " + place.path()));
    const std::uint64_t before = freeBytes(place);
    std::filesystem::remove(place / name);
    std::uint64_t freed = 0;
    for (int attempt = 0; attempt < 40; ++attempt) {
        static_cast<void>(runQuietly("sync -f " + place.path()));
        const std::uint64_t now = freeBytes(place);
        freed = now > before ? now - before : 0;
        if (freed >= atLeast) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return freed;
}

struct Claims {
    std::uint64_t freed = 0; ///< by removing the one copy
    std::uint64_t wasted = 0;
};

/// What is said of a copy in a folder, when nothing holds it back.
Claims claimsFor(const std::string& folder, const std::string& name, const TemporaryFolder& place) {
    auto report = quietEngine().run(searching(TemporaryFolder(place / folder)));
    if (!report || report->groups.empty()) return {};
    DuplicateGroup& group = report->groups.front();
    for (DuplicateCopy& copy : group.copies) copy.heldBecause.reset();
    return {.freed = DuplicatesModel().freedBytes(group, {place / name}),
            .wasted = report->wastedBytes()};
}

/// Two copies, "a" and "b", of which the one or the other goes.
struct MadeCopies {
    const char* what;
    std::function<void(const std::string& folder, const TemporaryFolder& place)> make;
    std::uint64_t claim; ///< for "b"
    std::uint64_t wasted;
};

bool run(const char* command, const std::string& folder, const TemporaryFolder& place) {
    return runQuietly("cd " + (place / folder) + " && " + command);
}

std::vector<MadeCopies> casesOnSharedBlocks() {
    const auto made = [](const char* command) {
        return [command](const std::string& folder, const TemporaryFolder& place) {
            place.noise(folder + "/a", 10'000'000);
            EXPECT_TRUE(run(command, folder, place)) << command;
        };
    };
    return {{"copies", made("cp --reflink=never a b"), 10'000'000, 10'000'000},
            {"the first block of a clone was written again",
             made("cp --reflink=always a b && dd if=a of=b bs=4096 count=1 conv=notrunc"), 4'096,
             4'096},
            {"the middle of a clone was written again",
             made("cp --reflink=always a b && "
                  "dd if=a of=b bs=4096 skip=200 seek=200 count=2008 conv=notrunc"),
             8'224'768, 8'224'768},
            {"a third file outside shares the blocks of one",
             made("cp --reflink=never a b && cp --reflink=always b ../c"), 0, 10'000'000},
            {"holes",
             [](const std::string& folder, const TemporaryFolder& place) {
                 for (const char* name : {"/a", "/b"}) {
                     place.noise(folder + name, 4'096);
                     std::filesystem::resize_file(place / (folder + name), 10'000'000);
                 }
             },
             4'096, 4'096}};
}

void checkClaims(const std::string& type, const std::vector<MadeCopies>& cases) {
    for (const MadeCopies& one : cases) {
        for (const std::string name : {"d/b", "d/a"}) {
            const auto image = MountedImage::make(type);
            if (image == nullptr) GTEST_SKIP() << "cannot mount a " << type << " image here";
            const TemporaryFolder& place = image->folder();
            place.folder("d");
            one.make("d", place);
            const Claims claims = claimsFor("d", name, place);
            const std::uint64_t freed = freedByRemoving(name, claims.freed, place);
            EXPECT_LE(claims.freed, freed) << one.what << ", without " << name;
            EXPECT_EQ(claims.wasted, one.wasted) << one.what;
            if (name == "d/b") {
                EXPECT_EQ(claims.freed, one.claim) << one.what;
            }
        }
    }
}

TEST(CopyStorage, ClaimsNoMoreThanIsFreedOnXFS) { checkClaims("xfs", casesOnSharedBlocks()); }

TEST(CopyStorage, ClaimsNoMoreThanIsFreedOnBtrfs) {
    checkClaims("btrfs", casesOnSharedBlocks());
    const auto inSnapshot = [](const std::string& folder, const TemporaryFolder& place) {
        std::filesystem::remove(place / folder);
        EXPECT_TRUE(run("btrfs subvolume create d", "", place));
        place.noise("d/a", 10'000'000);
        EXPECT_TRUE(run("cp --reflink=never a b && sync && "
                        "btrfs subvolume snapshot -r . ../snapshot",
                        folder, place));
    };
    const auto besideTheirNames = [](const std::string& folder, const TemporaryFolder& place) {
        place.file(folder + "/a", "same");
        place.file(folder + "/b", "same");
    };
    checkClaims("btrfs", {{"both are in a snapshot too", inSnapshot, 0, 10'000'000},
                          {"so small that they have no blocks", besideTheirNames, 0, 4}});
}

TEST(CopyStorage, ClaimsOfCompressedCopiesWhatTheyTake) {
    for (const bool isAskedByRoot : {true, false}) {
        const auto image = MountedImage::make("btrfs");
        if (image == nullptr) GTEST_SKIP() << "cannot mount a btrfs image here";
        const TemporaryFolder& place = image->folder();
        place.folder("d");
        ASSERT_TRUE(run("chattr +c . && seq 1 1500000 > a && cp --reflink=never a b", "d", place));
        ASSERT_TRUE(runQuietly("chmod a+rx " + place.path() + "/.."));
        std::uint64_t claim = 0;
        if (isAskedByRoot) {
            claim = claimsFor("d", "d/b", place).freed;
        } else {
            claim = std::stoull(testing::asOrdinaryUser(
                [&] { return fmt::format("{}", claimsFor("d", "d/b", place).freed); }));
        }
        const std::uint64_t freed = freedByRemoving("d/b", claim, place);
        EXPECT_LT(freed, 6'000'000U) << "of eleven million bytes";
        EXPECT_LE(claim, freed);
        // How long compressed pieces are is told to root only. Others know that each takes a block.
        EXPECT_GT(claim, isAskedByRoot ? freed * 9 / 10 : 200'000);
    }
}

/// What two kinds of file systems that share blocks have in common.
void checkClones(const std::string& type) {
    const auto image = MountedImage::make(type);
    if (image == nullptr) GTEST_SKIP() << "cannot mount a " << type << " image here";
    const TemporaryFolder& place = image->folder();
    const auto clone = [&](const std::string& from, const std::string& to) {
        return runQuietly("cp --reflink=always " + (place / from) + " " + (place / to));
    };
    place.noise("pair/a", 500'000, 1);
    place.noise("three/a", 500'000, 2);
    place.noise("three/other", 500'000, 2);
    place.noise("written/a", 500'000, 3);
    place.noise("written/copy", 500'000, 3);
    ASSERT_TRUE(clone("pair/a", "pair/b"));
    ASSERT_TRUE(clone("three/a", "three/b"));
    ASSERT_TRUE(clone("written/a", "written/b"));
    // The same contents again, but in blocks of its own.
    ASSERT_TRUE(runQuietly("dd if=" + (place / "written/copy") + " of=" + (place / "written/b") +
                           " conv=notrunc && sync"));
    place.hole("holes/a", 10'000'000);
    place.hole("holes/b", 10'000'000);
    place.noise("sparse/a", 300'000, 4);
    ASSERT_TRUE(runQuietly("truncate -s 5000000 " + (place / "sparse/a")));
    ASSERT_TRUE(clone("sparse/a", "sparse/b"));
    const auto report = quietEngine().run(searching(place));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->cloneOnlyGroups, 3) << "nothing but holes takes nothing";
    ASSERT_EQ(report->groups.size(), 2U);
    const auto storages = [&](const std::string& folder) {
        std::vector<std::int64_t> numbers;
        for (const DuplicateGroup& group : report->groups) {
            if (!group.copies.front().path.starts_with(place / folder)) continue;
            for (const DuplicateCopy& copy : group.copies) numbers.push_back(copy.storage);
        }
        return numbers;
    };
    EXPECT_EQ(storages("three"), (std::vector<std::int64_t>{0, 0, 1}));
    EXPECT_EQ(storages("written"), (std::vector<std::int64_t>{0, 1, 2}));
    EXPECT_EQ(report->wastedBytes(), 3U * 500'000U);
}

TEST(CopyStorage, TellsClonesOnBtrfs) { checkClones("btrfs"); }
TEST(CopyStorage, TellsClonesOnXFS) { checkClones("xfs"); }

} // namespace
} // namespace tidyro
