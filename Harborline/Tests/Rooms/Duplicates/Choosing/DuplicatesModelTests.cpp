#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"

#include <algorithm>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/JSONRecords.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using ::testing::UnorderedElementsAre;
using Screen = DuplicatesModel::Screen;

class FakeQueue final : public CleanupQueue {
  public:
    bool stage(const std::string& path, std::uint64_t byteCount) override {
        if (refused.contains(path)) return false;
        inside.insert(path);
        bytes[path] = byteCount;
        return true;
    }
    bool unstage(const std::string& path) override {
        if (!stuck.contains(path)) inside.erase(path);
        return !covers(inside, path);
    }
    [[nodiscard]] PathSet staged() const override { return inside; }

    PathSet inside;
    std::map<std::string, std::uint64_t> bytes; ///< of all that was ever staged
    PathSet refused;
    PathSet stuck; ///< cannot be taken out any more
};

DuplicateCopy copy(std::string path, double modified, std::int64_t storage) {
    return {.path = std::move(path),
            .modified = Timestamp::sinceReference(modified),
            .otherNames = {},
            .storage = storage,
            .isSystem = false};
}

/// Copies of storages of their own, the first the oldest.
DuplicateGroup group(const std::string& digest, const std::vector<std::string>& paths) {
    DuplicateGroup made{.digest = digest, .bytesEach = 10, .copies = {}};
    for (const std::string& path : paths) {
        const auto number = static_cast<std::int64_t>(made.copies.size());
        made.copies.push_back(copy(path, static_cast<double>(number), number));
    }
    return made;
}

DuplicateReport reportOf(std::vector<DuplicateGroup> groups) {
    DuplicateReport report{};
    report.groups = std::move(groups);
    return report;
}

/// A model whose search found these.
struct Room {
    explicit Room(std::vector<DuplicateGroup> groups) {
        model.finished(model.searchBegan(), reportOf(std::move(groups)), queue);
    }
    [[nodiscard]] const DuplicateGroup& at(std::size_t index = 0) const {
        return model.report()->groups.at(index);
    }
    [[nodiscard]] std::string kept(std::size_t index = 0) const {
        const DuplicateCopy* found = model.keptCopy(at(index));
        return found == nullptr ? "" : found->path;
    }
    /// One word a copy.
    [[nodiscard]] std::string states(std::size_t index = 0) const {
        std::string text;
        for (const CopyState& state : model.states(at(index), queue.inside)) {
            text += (text.empty() ? "" : " ") + toJSON(state).begin().key();
        }
        return text;
    }

    FakeQueue queue;
    DuplicatesModel model;
};

TEST(DuplicatesModel, IsToldOfASearchAsItsHeaderShows) {
    const testing::TemporaryFolder place;
    place.file("a", "same");
    place.file("b", "same");
    const FileURL home = FileURL::folder(place.path());
    FakeQueue queue;
    DuplicatesModel model;
    model.settings.minimumBytes = 1;
    const auto search = model.searchBegan();
    const auto report = DuplicateEngine().run(model.options(home)); // on another thread
    model.finished(search, *report, queue);
    model.stageEveryExtra(queue);
    EXPECT_EQ(model.screen(), Screen::results);
    EXPECT_LT(queue.inside.size(), 2U) << "one copy stays";
}

TEST(DuplicatesModel, PicksTheCopyToKeepByItsRule) {
    EXPECT_EQ(DuplicatesModel::pick({}, KeepRule::oldest), nullptr);
    // In each, the first one is to be picked in whatever order they come.
    struct Case {
        KeepRule rule;
        std::vector<DuplicateCopy> copies;
    };
    DuplicateCopy created = copy("/z", 90, 0);
    created.created = Timestamp::sinceReference(5);
    std::vector<Case> cases{
        {KeepRule::oldest, {created, copy("/a", 6, 1), copy("/b", 7, 2)}},
        {KeepRule::oldest, {copy("/Z", 5, 1), copy("/a", 5, 0), created}},
        {KeepRule::newest, {created, copy("/a", 89, 1)}},
        {KeepRule::newest, {copy("/a", 7, 0), copy("/b", 7, 1), copy("/0", 6, 1)}},
        {KeepRule::shortestPath, {copy("/a", 1, 0), copy("/b", 0, 0), copy("/\xC3\xA4", 0, 0)}},
        // Three characters of eight bytes, then four of which three are no text, then four.
        {KeepRule::shortestPath,
         {copy("/\xE2\x82\xAC\xF0\x9F\x98\x80", 1, 0), copy("/\xBF\xBF\xBF", 0, 0),
          copy("/abc", 0, 0)}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        auto& [rule, copies] = cases[i];
        const std::string wanted = copies.front().path;
        for (std::size_t turn = 0; turn < copies.size(); ++turn) {
            std::ranges::rotate(copies, copies.begin() + 1);
            EXPECT_EQ(DuplicatesModel::pick(copies, rule)->path, wanted) << i;
        }
    }
}

TEST(DuplicatesModel, KeepsWhatLastsLongestWhateverItsRule) {
    using enum CopyPlace;
    struct Case {
        const char* what;
        CopyStanding older;
        CopyStanding newer;
        const char* states; ///< of the older one and the newer one
    };
    const std::vector<Case> cases{
        {"alike", {}, {}, "kept extra"},
        {"a cache", {.place = disposable}, {.place = own}, "extra kept"},
        {"Downloads", {.place = landing}, {.place = own}, "extra kept"},
        {"in both", {.place = disposable}, {.place = disposable}, "kept extra"},
        {"a backup", {.isReason = false}, {.place = disposable}, "held kept"},
        {"no reason at all", {.isReason = false}, {.isReason = false}, "kept held"},
        {"a stick", {.volume = "stick"}, {}, "held kept"},
        {"a stick that lasts", {.volume = "stick"}, {.place = landing}, "held kept"},
        {"one stick", {.place = landing, .volume = "stick"}, {.volume = "stick"}, "extra kept"},
        {"two sticks", {.volume = "stick"}, {.volume = "other"}, "kept held"},
        {"several names", {}, {.hasSeveralNames = true}, "extra kept"},
        {"several names in a cache",
         {},
         {.place = disposable, .hasSeveralNames = true},
         "kept extra"}};
    for (const Case& one : cases) {
        DuplicateGroup made = group("1", {"/a", "/b"});
        made.copies[0].standing = one.older;
        made.copies[1].standing = one.newer;
        for (std::size_t i = 0; i < 2; ++i) {
            if (!made.copies[i].standing->isReason) made.copies[i].heldBecause = "Why.";
        }
        Room room({made});
        EXPECT_EQ(room.states(), one.states) << one.what;
        if (!one.older.hasSeveralNames && !one.newer.hasSeveralNames) {
            EXPECT_EQ(DuplicatesModel::pick(room.at().copies, KeepRule::oldest)->path, room.kept())
                << one.what;
        }
    }
}

TEST(DuplicatesModel, LetsNothingGoForACopyThatLastsLessLong) {
    DuplicateGroup made = group("1", {"/own", "/own too", "/cache", "/stick"});
    made.copies[2].standing = CopyStanding{.place = CopyPlace::disposable};
    made.copies[3].standing = CopyStanding{.volume = "stick"};
    Room room({made});
    EXPECT_EQ(room.states(), "kept extra extra held");
    EXPECT_FALSE(room.model.stage(room.at().copies[3], room.at(), room.queue));
    EXPECT_EQ(room.model.stageEveryExtra(room.queue), 2U);
    // Chosen by hand, the copy in the cache justifies none of the others: they leave the queue.
    EXPECT_TRUE(room.model.keep(room.at().copies[2], room.at(), room.queue));
    EXPECT_TRUE(room.queue.inside.empty());
    EXPECT_EQ(room.states(), "held held kept held");
    EXPECT_EQ(room.model.stageEveryExtra(room.queue), 0U);
}

TEST(DuplicatesModel, LetsCopiesByTheirNameGoFirst) {
    for (const char* name :
         {"x (1).jpg", "x(2).jpg", "x (12).tar.gz", "x copy.jpg", "x copy 2.jpg", "x - Kopie.jpg",
          "x - Kopie (2).jpg", "x - Copy (3)", "Copy of x.jpg", "Kopie von x.jpg", "x (copy).jpg",
          "x (another copy).jpg", "x_copy.jpg", "X COPY.JPG", "x (Kopie).odt"}) {
        EXPECT_TRUE(isNamedAsCopy(name)) << name;
        Room room({group("1", {std::string("/a/") + name, "/b/x.jpg"})});
        EXPECT_EQ(room.states(), "extra kept") << name;
    }
    for (const char* name :
         {"x.jpg", "copy", "copy.txt", "photocopy.pdf", "report (2019).pdf", "(1)", "1.jpg",
          "x 2.jpg", "hardcopy 3.ps", "x (a1).jpg", ".copy", ""}) {
        EXPECT_FALSE(isNamedAsCopy(name)) << name;
    }
}

TEST(DuplicatesModel, PrefersAFolderAndAChoiceByHandWhileTheyCanBeFollowed) {
    Room room({group("1", {"/a/x", "/bc/x", "/b/x", "/b/y"})});
    DuplicatesModel& model = room.model;
    const auto prefer = [&](const char* folder) {
        model.setPreferredFolder(FileURL::folder(folder), room.queue);
        return room.kept();
    };
    EXPECT_EQ(prefer("/b"), "/a/x") << "the rule is another one";
    model.setKeepRule(KeepRule::preferredFolder, room.queue);
    EXPECT_EQ(prefer("/bc/"), "/bc/x");
    EXPECT_EQ(prefer("/"), "/a/x");
    EXPECT_EQ(prefer("/b"), "/b/x");

    EXPECT_TRUE(model.keep(room.at().copies[1], room.at(), room.queue));
    EXPECT_EQ(room.kept(), "/bc/x");
    model.removed({"/b/x", "/bc"}, room.queue); // a folder takes along what is in it
    EXPECT_EQ(room.kept(), "/b/y");
    EXPECT_FALSE(model.keep(room.at().copies[1], room.at(), room.queue)) << "it is gone";
    model.removed({"/b/y"}, room.queue);
    EXPECT_EQ(room.kept(), "/a/x") << "none is left in the folder";
    model.removed({"/a/x"}, room.queue);
    EXPECT_EQ(room.kept(), "");
    EXPECT_EQ(room.states(), "gone gone gone gone");
}

TEST(DuplicatesModel, TellsTheStateOfEachCopy) {
    DuplicateGroup made =
        group("1", {"/gone", "/app/held", "/extra", "/staged", "/kept", "/clone"});
    made.copies[1].heldBecause = "Why.";
    made.copies[4].created = Timestamp::sinceReference(-1);
    made.copies[5].storage = made.copies[4].storage;
    Room room({made});
    room.model.removed({"/gone"}, room.queue);
    room.queue.inside = {"/staged"};
    EXPECT_EQ(room.states(), "gone held extra staged kept sharesStorage");
    const auto& copies = room.at().copies;
    EXPECT_EQ(toJSON(room.model.state(copies[1], room.at(), {})).dump(),
              R"({"held":{"_0":"Why."}})");
    EXPECT_EQ(room.model.extras(room.at()),
              (std::vector<const DuplicateCopy*>{&copies[2], &copies[3]}));

    for (const std::size_t refused : {0U, 1U, 3U, 4U, 5U}) {
        EXPECT_FALSE(room.model.stage(copies[refused], room.at(), room.queue)) << refused;
    }
    EXPECT_TRUE(room.model.stage(copies[2], room.at(), room.queue));
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/staged", "/extra"));
    EXPECT_TRUE(room.model.unstage(copies[2], room.queue));
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/staged"));
    // What is held may be chosen; then the others are extras, clones of each other or not.
    EXPECT_TRUE(room.model.keep(copies[1], room.at(), room.queue));
    EXPECT_EQ(room.states(), "gone kept extra staged extra extra");
}

TEST(DuplicatesModel, HoldsWhatACleanupThatWasCutShortLeft) {
    const std::string left = "/a/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/x";
    Room room({group("1", {left, "/a/b", "/a/c"}), group("2", {left, left + "y"})});
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_FALSE(room.model.keep(room.at(i).copies[0], room.at(i), room.queue));
        EXPECT_FALSE(room.model.stage(room.at(i).copies[0], room.at(i), room.queue));
    }
    EXPECT_EQ(room.states(), "held kept extra") << "though it is the oldest";
    EXPECT_EQ(room.states(1), "held held");
    EXPECT_EQ(room.kept(1), "");
    EXPECT_EQ(room.model.stageEveryExtra(room.queue), 1U);
}

TEST(DuplicatesModel, CountsAsFreedOnlyBlocksThatNobodyElseNeeds) {
    DuplicateGroup made =
        group("1", {"/kept", "/b", "/clone of b", "/d", "/held", "/clone of held"});
    made.copies[2].storage = made.copies[1].storage;
    made.copies[4].heldBecause = "Why.";
    made.copies[5].storage = made.copies[4].storage;
    Room room({made});
    const auto freed = [&](const PathSet& staged) {
        return room.model.freedBytes(room.at(), staged);
    };
    EXPECT_EQ(freed({"/b", "/d"}), 10U);
    EXPECT_EQ(freed({"/b", "/d", "/clone of b"}), 20U);
    EXPECT_EQ(freed({"/clone of held", "/held"}), 0U);
    room.model.removed({"/b"}, room.queue);
    EXPECT_EQ(freed({"/clone of b"}), 10U);
}

TEST(DuplicatesModel, TakesWhatIsKeptOutOfTheQueue) {
    Room room({group("1", {"/a", "/b", "/c"}), group("2", {"/d", "/e"})});
    DuplicatesModel& model = room.model;
    EXPECT_EQ(model.stageEveryExtra(room.queue), 3U);
    EXPECT_EQ(model.stageEveryExtra(room.queue), 0U) << "they are in there";
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/b", "/c", "/e"));
    model.setKeepRule(KeepRule::newest, room.queue);
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/b"));
    EXPECT_TRUE(model.keep(room.at().copies[1], room.at(), room.queue));
    EXPECT_EQ(model.stageEveryExtra(room.queue), 3U);
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/a", "/c", "/d"));
    model.removed({"/b", "/e"}, room.queue); // somebody else did
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/a"));
    EXPECT_EQ(room.states(0), "staged gone kept");
    EXPECT_EQ(room.states(1), "kept gone");

    // What other rooms staged, before the search and after it.
    const auto search = model.searchBegan();
    room.queue.inside = {"/g", "/i"};
    model.finished(search, reportOf({group("3", {"/f", "/g"}), group("4", {"/h", "/i"})}),
                   room.queue);
    EXPECT_TRUE(room.queue.inside.empty());
    room.queue.inside = {"/g", "/h"};
    EXPECT_TRUE(model.stage(room.at().copies[0], room.at(), room.queue));
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/f", "/h"));
}

TEST(DuplicatesModel, KeepsAnotherCopyWhereTheQueueDoesNotGiveOneBack) {
    Room room({group("1", {"/folder/a", "/b", "/c"})});
    DuplicatesModel& model = room.model;
    const auto& copies = room.at().copies;
    room.queue.refused = {"/c"};
    EXPECT_EQ(model.stageEveryExtra(room.queue), 1U);
    room.queue.refused = {};
    // Another room takes the whole folder, and then all of them.
    room.queue.inside.insert("/folder");
    model.queueChanged(room.queue);
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/folder", "/b"));
    room.queue.inside.insert("/c");
    room.queue.stuck = {"/b"};
    model.queueChanged(room.queue);
    EXPECT_THAT(room.queue.inside, UnorderedElementsAre("/folder", "/b"));

    EXPECT_FALSE(model.stage(copies[2], room.at(), room.queue));
    EXPECT_EQ(model.stageEveryExtra(room.queue), 0U);
    EXPECT_FALSE(model.unstage(copies[1], room.queue));
    EXPECT_FALSE(model.keep(copies[1], room.at(), room.queue));
    EXPECT_TRUE(model.keptByHand().empty());
    EXPECT_TRUE(model.keep(copies[2], room.at(), room.queue));
    EXPECT_EQ(room.states(), "staged staged kept");
}

TEST(DuplicatesModel, NeverLeavesAGroupToBeRemovedWhole) {
    for (std::uint32_t seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        const auto upTo = [&](std::size_t count) { return std::size_t{random() % count}; };
        std::vector<DuplicateGroup> groups{group("1", {}), group("2", {})};
        for (DuplicateGroup& of : groups) {
            for (std::size_t i = 0; i < 2 + upTo(4); ++i) {
                of.copies.push_back(copy("/" + std::string(i, 'f') + "/" + of.digest,
                                         static_cast<double>(upTo(3)),
                                         static_cast<std::int64_t>(upTo(4))));
                if (upTo(5) == 0) of.copies.back().heldBecause = "Why.";
                of.copies.back().standing = CopyStanding{
                    .place = allCases<CopyPlace>()[upTo(3)],
                    .isReason = !of.copies.back().heldBecause || upTo(2) == 0,
                    .hasSeveralNames = upTo(4) == 0,
                    .volume = upTo(4) == 0 ? std::optional<std::string>("stick") : std::nullopt};
            }
        }
        Room room(groups);
        PathSet& inside = room.queue.inside;
        for (int step = 0; step < 40; ++step) {
            const DuplicateGroup& of = room.at(upTo(2));
            const DuplicateCopy& one = of.copies[upTo(of.copies.size())];
            switch (upTo(8)) {
            case 0: room.model.keep(one, of, room.queue); break;
            case 1: room.model.unstage(one, room.queue); break;
            case 2: room.model.stageEveryExtra(room.queue); break;
            case 3: room.model.setKeepRule(allCases<KeepRule>()[upTo(4)], room.queue); break;
            case 4:
                room.model.setPreferredFolder(FileURL::file(one.path).parent(), room.queue);
                break;
            case 5: // the pipeline does its work
                room.model.removed(std::exchange(inside, {}), room.queue);
                break;
            case 6:
                inside.insert(one.path);
                room.model.queueChanged(room.queue);
                break;
            default: room.model.stage(one, of, room.queue);
            }
            for (const std::string& kept : {room.kept(0), room.kept(1)}) {
                ASSERT_NE(kept, "") << "seed " << seed << ", step " << step;
                ASSERT_FALSE(inside.contains(kept)) << "seed " << seed << ", step " << step;
            }
        }
    }
}

TEST(DuplicatesModel, FollowsASearch) {
    FakeQueue queue;
    DuplicatesModel model;
    EXPECT_EQ(model.screen(), Screen::start);
    EXPECT_EQ(model.stageEveryExtra(queue), 0U) << "nothing has been found yet";
    model.removed({"/b"}, queue); // by another room
    const auto first = model.searchBegan();
    model.progressed(first, {.done = 3, .currentPath = ""});
    EXPECT_EQ(model.screen(), Screen::searching);
    EXPECT_TRUE(model.progress());
    model.stopped(first);
    EXPECT_EQ(model.screen(), Screen::start);
    EXPECT_TRUE(model.wasStopped());

    const auto second = model.searchBegan();
    EXPECT_FALSE(model.wasStopped());
    // The first one still has something to say.
    model.progressed(first, {.done = 9, .currentPath = ""});
    model.finished(first, reportOf({group("1", {"/a", "/b"})}), queue);
    model.failedWith(first, "late");
    model.stopped(first);
    EXPECT_EQ(model.screen(), Screen::searching);
    EXPECT_FALSE(model.progress());
    model.removed({"/b"}, queue); // while it is searched for
    const DuplicateGroup found = group("1", {"/a", "/b", "/c"});
    model.finished(second, reportOf({found}), queue);
    EXPECT_EQ(model.screen(), Screen::results);
    EXPECT_THAT(model.gone(), UnorderedElementsAre("/b"));
    EXPECT_TRUE(model.keep(found.copies[2], found, queue));

    const auto third = model.searchBegan();
    EXPECT_TRUE(model.gone().empty() && model.keptByHand().empty());
    // Rows of the old report may still be on the screen.
    EXPECT_FALSE(model.stage(found.copies[1], found, queue));
    EXPECT_FALSE(model.keep(found.copies[1], found, queue));
    model.failedWith(third, "No.");
    EXPECT_EQ(model.phase(), DuplicatesModel::Phase(DuplicatesModel::Failed{"No."}));
    EXPECT_EQ(model.screen(), Screen::start);
    model.finished(model.searchBegan(), reportOf({}), queue);
    EXPECT_EQ(model.screen(), Screen::nothingFound);
    EXPECT_FALSE(model.stage(found.copies[1], found, queue));
}

TEST(DuplicatesModel, SearchesEachScanOnce) {
    const FileURL home = FileURL::folder("/home/ada");
    const FileURL disk = FileURL::folder("/disk");
    const Timestamp noon = Timestamp::sinceReference(43'200);
    FakeQueue queue;
    DuplicatesModel model;
    EXPECT_FALSE(model.scanFinished(disk, noon)) << "not asked to follow";
    model.settings.followsScans = true;
    model.scanBegan();
    EXPECT_EQ(model.screen(), Screen::waitingForScan);
    model.scanEndedWithoutResult();
    EXPECT_EQ(model.screen(), Screen::start);

    const auto run = model.scanFinished(disk, noon);
    ASSERT_TRUE(run);
    EXPECT_FALSE(model.scanFinished(disk, noon));
    model.settings.includeSystemVolumes = true;
    const auto search = model.searchBegan();
    EXPECT_FALSE(model.scanFinished(disk, noon)) << "one is under way";
    const DuplicateGroup found = group("1", {"/a", "/b"});
    model.finished(search, reportOf({found}), queue);
    EXPECT_TRUE(model.scanFinished(disk, noon)) << "other volumes";
    EXPECT_TRUE(model.keep(found.copies[1], found, queue));
    EXPECT_FALSE(model.scanFinished(disk, noon.adding(1))) << "it would lose the choice";

    EXPECT_EQ(model.options(home).roots, std::vector{home});
    model.settings.folders = {FileURL::folder("/a"), FileURL::folder("/b")};
    EXPECT_EQ(model.options(home).roots, model.settings.folders);
    EXPECT_EQ(model.options(home, *run).roots, std::vector{disk});
    EXPECT_FALSE(model.options(home, *run).includeSystemVolumes);
}

TEST(DuplicatesModel, PromisesBytesOnlyForTheLastCopyOnItsBlocks) {
    DuplicateGroup clones = group("d", {"/kept", "/a", "/b", "/c"});
    for (const std::size_t i : {1U, 2U}) clones.copies[i].storage = 7;
    Room room({clones});
    EXPECT_EQ(room.model.stageEveryExtra(room.queue), 3U);
    EXPECT_EQ(room.queue.bytes,
              (std::map<std::string, std::uint64_t>{{"/a", 0}, {"/b", 10}, {"/c", 10}}));
    // A clone of what is kept from now on frees nothing any more, and leaves the queue.
    EXPECT_TRUE(room.model.keep(room.at().copies[1], room.at(), room.queue));
    EXPECT_EQ(room.states(), "extra kept sharesStorage staged");
}

} // namespace
} // namespace tidyro
