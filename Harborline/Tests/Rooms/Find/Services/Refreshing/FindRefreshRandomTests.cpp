// An index that is refreshed while a tree changes at random ends as a fresh one.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Rooms/Find/Services/Refreshing/FindEntryLooks.h"
#include "Rooms/Find/Services/Refreshing/RefreshedTrees.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;

/// Changes a tree at random. Whatever is not possible just then is left out.
class RandomChanges {
  public:
    RandomChanges(std::string root, std::string outside, unsigned seed)
        : root_(std::move(root)), outside_(std::move(outside)), random_(seed) {}

    void change() {
        std::error_code failed;
        switch (number(13)) {
        case 0:
        case 1: std::ofstream(anyFolder() / newName()) << std::string(number(40), 'x'); break;
        case 2:
        case 3: fs::create_directories(anyFolder() / newName() / newName(), failed); break;
        case 4: std::ofstream(any(), std::ios::app) << "more"; break;
        case 5: fs::rename(any(), anyFolder() / newName(), failed); break;
        case 6: fs::remove_all(any(), failed); break;
        case 7: fs::rename(any(), fs::path(outside_) / newName(), failed); break;
        case 8: moveIn(); break;
        case 9:
            fs::last_write_time(any(), fs::file_time_type::clock::now() - std::chrono::hours(999),
                                failed);
            break;
        case 10: exchange(); break;
        case 11: fs::create_symlink(anyFolder(), anyFolder() / newName(), failed); break;
        case 12: { // a file becomes a folder, or a folder a file
            const fs::path path = any();
            const bool wasFolder = fs::is_directory(fs::symlink_status(path, failed));
            fs::remove_all(path, failed);
            if (wasFolder) std::ofstream(path) << "file";
            if (!wasFolder) fs::create_directory(path, failed);
            break;
        }
        }
    }

  private:
    std::size_t number(std::size_t end) { return random_() % end; }
    std::string newName() { return fmt::format("{}{}", number(8) == 0 ? "." : "", number(60)); }
    /// Something below the root, found by going down at random.
    fs::path any() {
        std::error_code failed;
        fs::path at = root_;
        for (std::size_t steps = 1 + number(4); steps > 0; --steps) {
            std::vector<fs::path> there;
            for (fs::directory_iterator each(at, failed); !failed && each != fs::end(each);
                 each.increment(failed)) {
                there.push_back(each->path());
            }
            if (there.empty()) break;
            std::ranges::sort(there);
            const fs::path next = there[number(there.size())];
            if (!fs::is_directory(fs::symlink_status(next, failed))) {
                return at == fs::path(root_) || number(2) == 0 ? next : at;
            }
            at = next;
        }
        return at == fs::path(root_) ? at / newName() : at;
    }
    fs::path anyFolder() {
        std::error_code failed;
        const fs::path at = any();
        return fs::is_directory(fs::symlink_status(at, failed)) ? at : at.parent_path();
    }
    void moveIn() {
        std::error_code failed;
        for (fs::directory_iterator each(outside_, failed); !failed && each != fs::end(each);
             each.increment(failed)) {
            fs::rename(each->path(), anyFolder() / newName(), failed);
            return;
        }
    }
    void exchange() {
        std::error_code failed;
        const fs::path a = any();
        const fs::path b = any();
        const fs::path between = fs::path(outside_) / "between";
        fs::rename(a, between, failed);
        if (failed) return;
        fs::rename(b, a, failed);
        fs::rename(between, b, failed);
    }

    std::string root_;
    std::string outside_;
    std::mt19937 random_;
};

/// Makes sizes and dates true as well.
void lookAtEveryEntry(FindIndexStorage& index) {
    std::vector<FindIndexStorage::Entry> entries;
    entries.reserve(index.count());
    for (FindIndexStorage::Entry entry = 1; entry < index.count(); ++entry) {
        if (!index.isDeletedOrInside(entry)) entries.push_back(entry);
    }
    const auto seen = FindEntryLooks::look(index, entries);
    for (const auto& each : seen) {
        EXPECT_FALSE(each.isGone) << index.path(each.entry);
        EXPECT_FALSE(index.is(each.entry, findflag::folder)) << index.path(each.entry);
    }
    FindEntryLooks::apply(seen, index);
}

TEST(FindIndexRefresh, EndsAsAFreshIndexHoweverTheTreeChanges) {
    const char* wanted = std::getenv("TIDYRO_REFRESH_SEEDS");
    const unsigned long seeds = wanted == nullptr ? 20 : std::strtoul(wanted, nullptr, 10);
    std::int64_t read = 0;
    std::int64_t taken = 0;
    std::int64_t lookedAt = 0;
    for (unsigned seed = 1; seed <= seeds; ++seed) {
        const testing::TemporaryFolder place;
        place.folder("tree/start");
        place.folder("outside");
        RandomChanges changes(place / "tree", place / "outside", seed);
        for (int i = 0; i < 90; ++i) changes.change();
        FindIndexStorage index = testing::builtIndex(place / "tree");
        for (int i = 0; i < 10; ++i) changes.change();
        testing::waitUntilSettled();
        testing::refreshed(index);
        for (int i = 0; i < 8; ++i) changes.change();
        const auto counts = testing::refreshed(index);
        read += counts.read;
        taken += counts.taken;
        lookedAt += counts.lookedAt;
        for (int round = 0; round < 2; ++round) {
            std::atomic<bool> isDone = false;
            std::jthread meanwhile([&] {
                for (int i = 0; i < 30 && !isDone; ++i) changes.change();
            });
            testing::refreshed(index);
            isDone = true;
        }
        testing::refreshed(index);
        lookAtEveryEntry(index);
        EXPECT_TRUE(FindIndexPersistence::validate(index)) << seed;
        const FindIndexStorage fresh = testing::builtIndex(place / "tree");
        ASSERT_EQ(testing::contentsOf(index), testing::contentsOf(fresh)) << seed;
        ASSERT_EQ(testing::contentsOf(index.compacted()), testing::contentsOf(fresh)) << seed;
    }
    if (seeds < 20) return;
    EXPECT_LT(read, lookedAt * 3 / 4) << "what has not changed is not read";
    EXPECT_GT(taken, 0) << "what was moved is known";
}

} // namespace
} // namespace tidyro
