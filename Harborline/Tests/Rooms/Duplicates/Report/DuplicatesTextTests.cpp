#include "Rooms/Duplicates/Report/DuplicatesText.h"

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Rooms/Duplicates/Report/ProgressLine.h"

namespace tidyro {
namespace {

DuplicateReport sample() {
    const auto copy = [](std::string path, double age, std::int64_t storage) {
        return DuplicateCopy{.path = std::move(path),
                             .modified = Timestamp::sinceReference(-age),
                             .otherNames = {},
                             .storage = storage,
                             .isSystem = false};
    };
    DuplicateGroup group{.digest = std::string(64, 'a'),
                         .bytesEach = 2'000'000,
                         .copies = {copy("/a/extra", 1, 0), copy("/a/held\xFF", 2, 1),
                                    copy("/b/clone", 3, 2), copy("/b/kept", 9, 2)}};
    group.copies[1].heldBecause = "It stays.";
    group.copies[3].otherNames = {"/b/other"};
    return {.groups = {group},
            .filesLookedAt = 1'234,
            .hardLinkedFiles = 1,
            .cloneOnlyGroups = 2,
            .minimumBytes = 1'000,
            .roots = {FileURL::folder("/a"), FileURL::folder("/b")},
            .includedSystemVolumes = true,
            .duration = 0.5,
            .finishedAt = Timestamp::sinceReference(0),
            .deniedFolders = 1};
}

TEST(DuplicatesText, TellsEveryCopyAndItsState) {
    std::string text;
    writeText(
        sample(), DuplicatesModel(), [](const std::string& name) { return name; },
        [&](std::string_view line) { text += line; });
    EXPECT_EQ(text, "Looked at 1,234 files of 1 KB or more, system volumes included.\n"
                    "1 folder was closed to Tidyro and not searched.\n"
                    "\n"
                    "2 MB × 4, 4 MB wasted  " +
                        std::string(64, 'a') +
                        "\n"
                        "  extra           /a/extra\n"
                        "  held            /a/held\xFF\n"
                        "                  It stays.\n"
                        "  shares storage  /b/clone\n"
                        "  kept            /b/kept\n"
                        "    also named    /b/other\n"
                        "\n"
                        "1 set of copies, 4 MB taken by the extra copies, in 0.50 s.\n"
                        "1 copy may go, which frees at least 2 MB; 1 copy is held.\n"
                        "2 further sets of copies share all their storage, so that removing any "
                        "would free nothing.\n"
                        "1 path is a further name of a file and counted once.\n");

    // What has to stay and is the kept one is not counted as held, one that has no reason to go is.
    DuplicateReport other = sample();
    auto& copies = other.groups[0].copies;
    copies[3].heldBecause = "It stays as well.";
    copies[0].standing = CopyStanding{.volume = "stick"};
    other.unreadFiles = 2;
    text.clear();
    writeText(
        other, DuplicatesModel(), [](const std::string& name) { return name; },
        [&](std::string_view line) { text += line; });
    EXPECT_NE(text.find("2 files could not be opened and were not compared.\n"), text.npos) << text;
    EXPECT_NE(text.find("  held            /a/extra\n                  The copy that is kept lies "
                        "on another volume"),
              text.npos)
        << text;
    EXPECT_NE(text.find("0 copies may go, which frees at least Zero KB; 2 copies are held.\n"),
              text.npos)
        << text;
    EXPECT_EQ(documentOf(other, DuplicatesModel())["heldCopies"], 2);

    const JSON document = documentOf(sample(), DuplicatesModel());
    EXPECT_EQ(document.begin().key(), "groups");
    EXPECT_EQ(document["freedBytes"], 2'000'000);
    EXPECT_EQ(document["wastedBytes"], 4'000'000);
    EXPECT_EQ(document["groups"][0]["storageCount"], 3);
    const JSON& held = document["groups"][0]["copies"][1];
    EXPECT_EQ(held["url"], "file:///a/held%FF") << "a path that is no Unicode survives";
    EXPECT_EQ(jsonText(held["state"]), R"({"held":{"_0":"It stays."}})");
    EXPECT_EQ(jsonText(document["groups"][0]["copies"][2]["state"]), R"({"sharesStorage":{}})");
    const auto back = fromJSON<DuplicateReport>(document);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->groups[0].copies[3], sample().groups[0].copies[3]);
}

TEST(ProgressLine, TellsHowFarAndHowLong) {
    using enum DuplicateProgress::Phase;
    EXPECT_EQ(ProgressLine::text({}, 5), "Listing …");
    EXPECT_EQ(ProgressLine::text({.phase = sampling, .done = 1, .total = 4}, 10),
              "Sampling  25 %, about 30 s left");
    EXPECT_EQ(ProgressLine::text({.phase = sampling}, 10), "Sampling …");
    EXPECT_EQ(ProgressLine::text({.phase = verifying, .done = 1, .total = 4, .bytesTotal = 9}, 10),
              "Comparing   0 %");
    EXPECT_EQ(ProgressLine::text({.phase = verifying, .bytesDone = 9, .bytesTotal = 3}, 500),
              "Comparing 100 %, about 0 s left");
    EXPECT_EQ(ProgressLine::text({.phase = verifying, .bytesDone = 1, .bytesTotal = 10}, 100),
              "Comparing  10 %, about 15 min left");

    std::string written;
    ProgressLine line([&](std::string_view text) { written += text; });
    line.show({.phase = sampling, .done = 1, .total = 4});
    line.show({});
    line.clear();
    EXPECT_EQ(written.substr(0, 14), "\rSampling  25 ");
    EXPECT_TRUE(written.ends_with("\r"));
}

} // namespace
} // namespace tidyro
