#include "Platform/Folders/TrashListing.h"

#include <cstdlib>
#include <ctime>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/Calendar.h"
#include "Support/OtherCircumstances.h"

namespace tidyro::platform {
namespace {

using namespace tidyro::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

struct GivenVolumes final : platform::Volumes {
    std::expected<std::vector<platform::Volume>, SystemError> answer =
        std::vector<platform::Volume>();
    [[nodiscard]] std::expected<std::vector<platform::Volume>, SystemError>
    mounted() const override {
        return answer;
    }
};

std::string pathIn(std::string_view text, std::string_view top = {}) {
    const auto note = readTrashNote(text, top);
    return note ? note->path : "none";
}

TEST(TrashNote, TellsWhereAnItemLay) {
    const std::string head = "[Trash Info]\n";
    EXPECT_EQ(pathIn(head + "Path=/home/ada/a%20b%0A%FF\n"), "/home/ada/a b\n\xFF");
    EXPECT_EQ(pathIn(head + "Path=/home//ada/./x/\n"), "/home/ada/x");
    EXPECT_EQ(pathIn(head + "Path=/first\nPath=/second\n"), "/first");
    EXPECT_EQ(pathIn(head + "Key=1\r\nPath=/a\r\n[Other]\n"), "/a");
    EXPECT_EQ(pathIn(head + "[Other]\nPath=/a\n"), "none");
    EXPECT_EQ(pathIn(head + "Path=/\xC3\xA9 raw"), "/\xC3\xA9 raw") << "not encoded, no line break";
    EXPECT_EQ(pathIn(head + "Path=in/here\n", "/media/disk"), "/media/disk/in/here");
    EXPECT_EQ(pathIn(head + "Path=/else/where\n", "/media/disk"), "/else/where");
    for (const char* hostile :
         {"", "Path=", "Path=in/here", "Path=/a/../b", "Path=/a/%2E%2e/b", "Path=..",
          "Path=/a%2F..", "Path=/a%00b", "Path=/a%4", "Path=/a%zz", "Path=/", "path=/a"}) {
        EXPECT_EQ(pathIn(head + hostile + "\n"), "none") << hostile;
    }
    EXPECT_EQ(pathIn(head + "Path=../x\n", "/media/disk"), "none");
    EXPECT_EQ(pathIn(head + "Path=a/%2e%2e/%2e%2e/x\n", "/media/disk"), "none");
    EXPECT_EQ(pathIn("Path=/a\n"), "none") << "without its head";
    EXPECT_EQ(pathIn(head + "Path=/a\0b\n"), "/a");
    EXPECT_EQ(pathIn(head + std::string("Path=/a\0b\n", 10)), "none");
}

TEST(TrashNote, TellsWhenAnItemWent) {
    const auto moment = [](const std::string& date) {
        const auto note = readTrashNote("[Trash Info]\nPath=/a\nDeletionDate=" + date + "\n", {});
        return note ? note->deletedAt : std::nullopt;
    };
    for (const char* none :
         {"", "2026", "2026-13-01T00:00:00", "2026-00-01T00:00:00", "-026-01-01T0",
          "2026-01-01 00:00:00", "2026-01-01T24:00:00", "2026-01-01T00:00:6"}) {
        EXPECT_FALSE(moment(none)) << none;
    }
    // Also on the days on which clocks are set, where a note is read back as it was written.
    const std::string told = inChild([&] {
        ::setenv("TZ", "Europe/Berlin", 1);
        ::tzset();
        std::string failed;
        for (const double at : {1'774'745'999.0, 1'774'746'000.0, 1'774'800'000.0, 1'792'880'000.0,
                                1'792'899'999.0, 1'792'930'000.0, 1'790'000'000.0}) {
            const Timestamp when = Timestamp::since1970(at);
            const auto note = readTrashNote(platform::trashNote("/a", {}, when), {});
            if (!note || !note->deletedAt ||
                Calendar::current().components(*note->deletedAt) !=
                    Calendar::current().components(when)) {
                failed += std::to_string(at) + " ";
            }
        }
        return failed;
    });
    EXPECT_EQ(told, "");
}

/// The names in the Trashes with the paths that their notes tell.
std::map<std::string, std::string> told(const TrashListing& listing) {
    std::map<std::string, std::string> all;
    for (const TrashListing::Item& item : listing.items) {
        const std::string without = item.hasNote ? "useless note" : "no note";
        all[listing.url(item).path()] = item.note ? item.note->path : without;
    }
    return all;
}

TEST(TrashListing, ReadsEveryNoteAsIfAnybodyHadWrittenIt) {
    const TemporaryFolder place;
    const GivenVolumes none{};
    const TrashListing::Options options{.volumes = &none, .home = FileURL::folder(place / "Trash")};
    EXPECT_THAT(TrashListing::read(options).unread, IsEmpty()) << "no Trash yet";
    const std::string head = "[Trash Info]\nPath=";
    place.file("Trash/files/good");
    place.file("Trash/info/good.trashinfo", head + "/home/ada/good\n");
    place.folder("Trash/files/orphan");
    place.file("Trash/files/linked");
    place.link("Trash/info/linked.trashinfo", "good.trashinfo");
    place.file("Trash/files/huge");
    place.file("Trash/info/huge.trashinfo", head + "/" + std::string(1U << 20U, 'x') + "\n");
    place.link("Trash/files/relative", "/nowhere");
    place.file("Trash/info/relative.trashinfo", head + "home/ada/x\n");
    place.pipe("Trash/info/piped.trashinfo");
    place.file("Trash/files/piped");
    place.file("Trash/info/gone.trashinfo", head + "/gone\n");
    const auto listing = TrashListing::read(options);
    const std::string files = place / "Trash/files/";
    EXPECT_THAT(told(listing), UnorderedElementsAre(Pair(files + "good", "/home/ada/good"),
                                                    Pair(files + "orphan", "no note"),
                                                    Pair(files + "linked", "useless note"),
                                                    Pair(files + "huge", "useless note"),
                                                    Pair(files + "relative", "useless note"),
                                                    Pair(files + "piped", "useless note")));
    EXPECT_THAT(listing.unread, IsEmpty());

    GivenVolumes unknown;
    unknown.answer = std::unexpected(SystemError{EIO});
    EXPECT_THAT(TrashListing::read({.volumes = &unknown, .home = options.home}).unread, SizeIs(1));
}

TEST(TrashListing, FindsTheTrashesOfVolumesThatNobodyElseCanExchange) {
    const TemporaryFolder place;
    const std::string user = std::to_string(platform::currentUserID());
    GivenVolumes volumes;
    const auto addVolume = [&](const std::string& name, const std::string& fileSystem = "ext4") {
        place.folder(name);
        volumes.answer->push_back({.mountPath = place / name,
                                   .mount = volumes.answer->size(),
                                   .device = 1,
                                   .identifier = name,
                                   .fileSystem = fileSystem,
                                   .isInternalLocal = true});
    };
    const auto fill = [&](const std::string& trash, unsigned mode) {
        place.file(trash + "/files/a");
        place.folder(trash + "/info");
        place.file(trash + "/info/a.trashinfo", "[Trash Info]\nPath=in/a%20b\n");
        place.permissions(trash, mode);
    };
    addVolume("both");
    fill("both/.Trash/" + user, 0700);
    place.permissions("both/.Trash", 01777);
    fill("both/.Trash-" + user, 0700);
    addVolume("loose");
    fill("loose/.Trash/" + user, 0700); // its folder is not sticky
    place.permissions("loose/.Trash", 0777);
    fill("loose/.Trash-" + user, 0755); // others may look in
    addVolume("links");
    place.link("links/.Trash", "../both/.Trash");
    place.link("links/.Trash-" + user, "../both/.Trash-" + user);
    addVolume("memory", "tmpfs");
    fill("memory/.Trash-" + user, 0700);
    addVolume("left out");
    fill("left out/.Trash-" + user, 0700);
    const TrashListing::Options options{
        .volumes = &volumes,
        .home = FileURL::folder(place / "none"),
        .isAsked = [](const platform::Volume& volume) { return volume.identifier != "left out"; }};
    const auto listing = TrashListing::read(options);
    EXPECT_THAT(
        told(listing),
        ElementsAre(Pair(place / ("both/.Trash-" + user + "/files/a"), place / "both/in/a b"),
                    Pair(place / ("both/.Trash/" + user + "/files/a"), place / "both/in/a b")));
    EXPECT_THAT(listing.unread, IsEmpty());
}

} // namespace
} // namespace tidyro::platform
