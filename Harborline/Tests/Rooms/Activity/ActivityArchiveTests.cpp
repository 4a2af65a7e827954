#include "Rooms/Activity/ActivityArchive.h"

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;

DiskTree exampleTree() {
    return DiskTree::example(FileURL::folder("/home/ada/Work"),
                             {{.path = "big/inside/film.mp4", .bytes = 5'000'000},
                              {.path = "big/notes", .bytes = 2'000'000},
                              {.path = "small/note", .bytes = 999'999},
                              {.path = "not utf8 \xFF/data", .bytes = 1'000'000},
                              {.path = "top", .bytes = 1}});
}

TEST(FolderSnapshot, KeepsTheRootAndTheLargestFoldersWithAllAboveThem) {
    const FolderSnapshot snapshot = FolderSnapshot::take(exampleTree(), {});
    EXPECT_EQ(snapshot.title, "Work");
    EXPECT_EQ(snapshot.byteCount(), 9'000'000U);
    const std::vector<FolderSnapshotEntry> expected{
        {.url = FileURL::folder("/home/ada/Work"), .byteCount = 9'000'000, .fileCount = 5},
        {.url = FileURL::folder("/home/ada/Work/big"), .byteCount = 7'000'000, .fileCount = 2},
        {.url = FileURL::folder("/home/ada/Work/big/inside"),
         .byteCount = 5'000'000,
         .fileCount = 1},
        {.url = FileURL::folder("/home/ada/Work/not utf8 \xFF"),
         .byteCount = 1'000'000,
         .fileCount = 1}};
    EXPECT_EQ(snapshot.folders, expected);
    EXPECT_EQ(FolderSnapshot::take(exampleTree(), {.maximumEntries = 2}).folders.size(), 2U);
    EXPECT_EQ(FolderSnapshot::take(exampleTree(), {.maximumEntries = 0}).folders.size(), 1U);
    EXPECT_EQ(FolderSnapshot::take(exampleTree(), {.maximumPathBytes = 30}).folders.size(), 2U);
}

TEST(ActivityArchive, KeepsSnapshotsThatReadBackUnchanged) {
    const TemporaryFolder place;
    const ActivityArchive archive(FileURL::folder(place / "made/Activity"));
    EXPECT_TRUE(archive.files()->empty());
    std::vector<FolderSnapshot> kept;
    for (const double day : {2.0, 1.0, 3.0}) {
        FolderSnapshot snapshot = FolderSnapshot::take(exampleTree(), {.title = "A \"title\""});
        snapshot.takenAt = Timestamp::sinceReference(day * 86'400 + 0.123456789);
        const auto file = archive.save(snapshot, Calendar::utc());
        ASSERT_TRUE(file.has_value()) << ActivityArchive::description(file.error());
        EXPECT_EQ(ActivityArchive::load(*file), snapshot);
        kept.push_back(snapshot);
    }
    const auto files = archive.files();
    ASSERT_EQ(files->size(), 3U);
    EXPECT_EQ(files->front().lastComponent(), "2001-01-02 000000 " + kept[1].id.text() + ".json");
    EXPECT_EQ(ActivityArchive::load(files->back()), kept[2]);
}

TEST(ActivityArchive, IsUsedAsItsHeaderShows) {
    const TemporaryFolder place;
    const FileURL folder = FileURL::folder(place.path());
    const DiskTree tree = exampleTree();
    int readable = 0;
    const auto show = [](const std::string& text) { FAIL() << text; };
    const auto compare = [&](const auto& loaded) { readable += loaded ? 1 : 0; };
    const ActivityArchive archive(folder);
    const auto file = archive.save(FolderSnapshot::take(tree, {}));
    if (!file) show(ActivityArchive::description(file.error()));
    const auto kept = archive.files();
    for (const FileURL& each : *kept) compare(ActivityArchive::load(each));
    EXPECT_EQ(readable, 1);
}

TEST(ActivityArchive, TellsWhatIsWrongWithAFile) {
    const TemporaryFolder place;
    const auto told = [&](const char* contents) {
        place.file("snapshot.json", contents);
        const auto loaded = ActivityArchive::load(FileURL::file(place / "snapshot.json"));
        if (loaded) return std::string("fine");
        return ActivityArchive::description(loaded.error());
    };
    const std::string start = "The file " + place / "snapshot.json" + " is not a snapshot. ";
    EXPECT_EQ(told("{"), start + "The data is not valid JSON.");
    EXPECT_EQ(told("[]"), start + "Expected an object.");
    EXPECT_EQ(told("{}"), start + "No value associated with the key. (at id)");
    EXPECT_EQ(told(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","title":"t","takenAt":1,)"
                   R"("onDisk":true,"folders":[{"url":"file:///a/","byteCount":-1}]})"),
              start + "Expected an unsigned number in range. (at folders.byteCount)");

    const auto missing = ActivityArchive::load(FileURL::file(place / "missing"));
    EXPECT_EQ(ActivityArchive::description(missing.error()),
              "The snapshot " + place / "missing" +
                  " could not be read (No such file or directory).");
    place.file("in the way");
    const auto saved = ActivityArchive(FileURL::folder(place / "in the way"))
                           .save(FolderSnapshot::take(exampleTree(), {}));
    EXPECT_EQ(ActivityArchive::description(saved.error()),
              "The snapshot could not be kept in " + place / "in the way" + " (Not a directory).");
}

} // namespace
} // namespace tidyro
