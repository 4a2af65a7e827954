#include "StorageEngine/Trash/KeptCopies.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Testing/FakeVolumes.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using platform::testing::FakeVolumes;

KeptCopy keptCopyAt(const std::string& path, const std::string& volume = "inside") {
    const auto seen = platform::fileMetadata(path);
    return {.url = FileURL::file(path),
            .fingerprint = {.byteCount = seen->byteCount,
                            .modificationDate = seen->modified,
                            .volumeIdentifier = volume,
                            .fileResourceIdentifier = std::to_string(seen->identity.device) + ":" +
                                                      std::to_string(seen->identity.inode)},
            .statusChange = seen->changed};
}

/// Two copies in a place of their own: "keep/a" stays, "extra" goes.
struct Copies {
    TemporaryFolder place;
    KeptCopy kept;
    FakeVolumes volumes = FakeVolumes::withOneAt(place.path());
    std::vector<KeptCopies::Leaving> leaving = {};

    Copies() {
        place.file("keep/a", "same");
        place.file("extra", "same");
        kept = keptCopyAt(place / "keep/a");
        leave("extra");
    }
    void leave(const std::string& name) {
        leaving.push_back({.url = FileURL::file(place / name),
                           .identity = platform::fileMetadata(place / name)->identity});
    }
    /// The refusal's sentence; empty when the extra copy may go.
    [[nodiscard]] std::string told() const {
        const KeptCopies copies({.volumes = volumes, .leaving = leaving});
        const auto there = copies.check(kept, platform::fileMetadata(place / "extra")->identity);
        return there ? std::string() : std::string(description(there.error()));
    }
};

constexpr const char* gone = "The copy that was to be kept is no longer there, so this one stays.";
constexpr const char* changed =
    "The copy that was to be kept has changed since it was compared, so this one stays.";
constexpr const char* inTrash =
    "The copy that was to be kept lies in the Trash, so this one stays.";
constexpr const char* goesToo =
    "The copy that was to be kept is to go in the same cleanup, so this one stays.";
constexpr const char* notAFile =
    "The copy that was to be kept is not an ordinary file on this disk, so this one stays.";

TEST(KeptCopies, LetsAnExtraCopyGoOnlyWhileTheOtherIsThere) {
    const Copies untouched;
    EXPECT_EQ(untouched.told(), "");
    {
        const Copies copies;
        fs::remove(copies.place / "keep/a");
        EXPECT_EQ(copies.told(), gone);
        fs::remove(copies.place / "keep");
        EXPECT_EQ(copies.told(), gone);
        copies.place.file("elsewhere/a", "same");
        copies.place.link("keep", "elsewhere");
        EXPECT_EQ(copies.told(), changed) << "another file, behind a link";
    }
    {
        const Copies copies;
        fs::rename(copies.place / "keep/a", copies.place / "keep/b");
        copies.place.link("keep/a", "b");
        EXPECT_EQ(copies.told(), notAFile);
        fs::remove(copies.place / "keep/a");
        copies.place.folder("keep/a");
        EXPECT_EQ(copies.told(), notAFile);
    }
    {
        Copies copies;
        fs::remove(copies.place / "keep/a");
        copies.place.hardLink("keep/a", "extra");
        EXPECT_EQ(
            copies.told(),
            "The copy that was to be kept is this very file under another name, so it stays.");
    }
}

TEST(KeptCopies, ComparesEverythingThatIsKnownOfTheOther) {
    {
        const Copies copies;
        const auto date = fs::last_write_time(copies.place / "keep/a");
        copies.place.file("keep/a", "SAME");
        fs::last_write_time(copies.place / "keep/a", date);
        EXPECT_EQ(copies.told(), changed) << "its date was set back";
    }
    // Nobody has touched it, but it is not the file of which something else is known.
    const auto with = [](auto change) {
        Copies copies;
        change(copies.kept);
        return copies.told();
    };
    EXPECT_EQ(with([](KeptCopy& kept) { kept.statusChange.reset(); }), "");
    const std::vector<std::function<void(KeptCopy&)>> changes{
        [](KeptCopy& kept) { ++kept.fingerprint.byteCount; },
        [](KeptCopy& kept) { kept.fingerprint.modificationDate = Timestamp(); },
        [](KeptCopy& kept) { kept.fingerprint.modificationDate.reset(); },
        [](KeptCopy& kept) { kept.fingerprint.volumeIdentifier = "another"; },
        [](KeptCopy& kept) { kept.fingerprint.volumeIdentifier.reset(); },
        [](KeptCopy& kept) { kept.fingerprint.fileResourceIdentifier->insert(0, "1"); },
        [](KeptCopy& kept) { kept.fingerprint.fileResourceIdentifier->append("1"); },
        [](KeptCopy& kept) { kept.fingerprint.fileResourceIdentifier.reset(); },
        [](KeptCopy& kept) { kept.fingerprint.fileResourceIdentifier = "nothing"; },
        [](KeptCopy& kept) { kept.statusChange = Timestamp(); },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) EXPECT_EQ(with(changes[i]), changed) << i;

    // After the next start the device may have another number. The UUID tells the volume then.
    Copies copies;
    const std::string uuid = "0f0e0d0c-0b0a-0908-0706-050403020100";
    copies.volumes.answer->front().identifier = uuid + "@2049";
    copies.kept.fingerprint.volumeIdentifier = uuid;
    copies.kept.fingerprint.fileResourceIdentifier->insert(0, "1");
    const auto later = [&] {
        return KeptCopies({.volumes = copies.volumes,
                           .leaving = copies.leaving,
                           .volume = FingerprintComparison::Volume::byUUID})
            .check(copies.kept, {.device = 1, .inode = 1})
            .has_value();
    };
    EXPECT_EQ(copies.told(), changed);
    EXPECT_TRUE(later());
    copies.volumes.answer->front().identifier = "another";
    EXPECT_FALSE(later());
    copies.volumes.answer->front().identifier = "8:1:ext4";
    copies.kept.fingerprint.volumeIdentifier = "8:1:ext4";
    EXPECT_FALSE(later()) << "such an identifier is made of numbers that change";
    copies.volumes.answer = std::unexpected(SystemError{5});
    EXPECT_FALSE(later());
}

TEST(KeptCopies, StayOutsideTheTrashAndTheRun) {
    for (const std::string name :
         {".Trash/1/a", ".Trash-1000/files/a", ".trashes/a", "Share/Trash/files/a",
          ".tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/a"}) {
        Copies copies;
        copies.place.file(name, "same");
        copies.kept = keptCopyAt(copies.place / name);
        EXPECT_EQ(copies.told(), inTrash) << name;
        copies.place.link("way", fs::path(name).parent_path().string());
        copies.kept.url = FileURL::file(copies.place / "way/a");
        EXPECT_EQ(copies.told(), inTrash) << name << " by a link";
    }
    {
        Copies copies;
        copies.place.file("Trash/a", "same"); // no Trash: it has no "files"
        copies.kept = keptCopyAt(copies.place / "Trash/a");
        EXPECT_EQ(copies.told(), "");
    }
    {
        Copies copies;
        copies.leave("keep/a");
        EXPECT_EQ(copies.told(), goesToo);
    }
    Copies copies;
    copies.place.file("keep/deep/er/a", "same");
    copies.kept = keptCopyAt(copies.place / "keep/deep/er/a");
    copies.place.link("way", "keep/deep");
    EXPECT_EQ(copies.told(), "");
    copies.leaving.push_back({.url = FileURL::folder(copies.place / "keep")});
    EXPECT_EQ(copies.told(), goesToo) << "in a folder that goes";
    copies.kept.url = FileURL::file(copies.place / "way/er/a");
    EXPECT_EQ(copies.told(), goesToo) << "written by another way";
    copies.leaving.pop_back();
    copies.leaving.push_back({.url = FileURL::folder("/elsewhere"),
                              .identity = platform::fileMetadata(copies.place / "keep")->identity});
    EXPECT_EQ(copies.told(), goesToo) << "a folder that is known by its identity";
}

} // namespace
} // namespace tidyro
