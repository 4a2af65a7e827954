// Searches while the index changes.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Rooms/Find/Services/Index/FindTrees.h"
#include "Rooms/Find/Services/Search/FindRandomTrees.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

namespace tidyro {
namespace {

using testing::RandomSource;

struct Question {
    std::string_view query;
    std::string_view word; ///< that names have to hold
};
constexpr std::array<Question, 6> questions{{{"n", "n"},
                                             {"needle", "needle"},
                                             {"regex:nee+dle", "needle"},
                                             {"needle (needle | x)", "needle"},
                                             {"beta", "beta"},
                                             {"-case:BETA beta", "beta"}}};
using Counts = std::array<std::uint64_t, questions.size()>;

/// An index that one thread changes, and how many answers each of its states has.
class ChangingIndex {
  public:
    ChangingIndex() : storage_("/r") {
        storage_.appendRoot("/r", 0);
        storage_.appendBlock(0, newNames(11'000));
        storage_.aggregateFolderSizes();
        publish(Publishing::newIndex);
    }

    [[nodiscard]] const FindIndex& index() const { return index_; }

    void change() {
        for (int i = 0; i < 20; ++i) {
            const std::uint32_t entry = 1 + random_.below(storage_.count() - 1);
            if (!storage_.is(entry, findflag::deleted)) storage_.markDeleted(entry);
        }
        storage_.appendLooseChildren(0, newNames(20 + random_.below(30)));
        const bool isNew = random_.oneIn(4);
        if (isNew) storage_ = storage_.compacted();
        publish(isNew ? Publishing::newIndex : Publishing::update);
    }

    /// Whether one of the states between two revisions has so many answers.
    [[nodiscard]] bool everHad(std::size_t question, std::uint64_t count, std::uint64_t from,
                               std::uint64_t to) {
        const std::scoped_lock held(lock_);
        for (std::uint64_t revision = from; revision <= to; ++revision) {
            if (counts_.at(revision)[question] == count) return true;
        }
        return false;
    }

  private:
    FindDirectoryListing newNames(std::size_t count) {
        constexpr std::array stems{"needle", "beta", "alpha", "gamma", "Needle beta", "delta.txt"};
        FindDirectoryListing listing;
        for (; count > 0; --count) {
            listing.append({.name = random_.oneOf(stems) + std::to_string(++made_),
                            .type = FindObjectType::file});
        }
        return listing;
    }
    enum class Publishing : std::uint8_t { newIndex, update };
    void publish(Publishing publishing) {
        Counts counts{};
        for (std::uint32_t entry = 1; entry < storage_.count(); ++entry) {
            if (storage_.is(entry, findflag::deleted)) continue;
            for (std::size_t i = 0; i < counts.size(); ++i) {
                const bool holds =
                    storage_.foldedName(entry).find(questions[i].word) != std::string_view::npos;
                counts[i] += holds ? 1 : 0;
            }
        }
        {
            const std::scoped_lock held(lock_);
            counts_.resize(index_.revision() + 1, counts_.empty() ? Counts{} : counts_.back());
            counts_.push_back(counts);
        }
        if (publishing == Publishing::newIndex) {
            index_.replace(storage_, {});
        } else {
            index_.update(storage_, {});
        }
    }

    RandomSource random_{17};
    std::uint64_t made_ = 0;
    FindIndexStorage storage_;
    FindIndex index_;
    std::mutex lock_;
    std::vector<Counts> counts_; ///< by revision
};

/// Asks until it is told to end; how many answers it got.
std::size_t askUntil(const std::atomic<bool>& isOver, unsigned seed, ChangingIndex& changing) {
    RandomSource random(seed);
    FindSearchEngine engine;
    const FindIndex& index = changing.index();
    std::size_t answers = 0;
    while (!isOver) {
        const std::size_t chosen = random.below(questions.size());
        const std::uint64_t before = index.revision();
        const auto storage = index.storage();
        const auto generation =
            random.oneIn(2) ? std::optional(index.generation()) : std::optional<std::uint64_t>();
        const std::size_t limit = 1 + random.below(600);
        const auto result = engine.search(
            questions[chosen].query,
            {.in = index, .generation = generation, .limit = limit, .now = Timestamp()});
        const bool isStill = index.storage() == storage;
        const std::uint64_t after = index.revision();
        if (result.wasCancelled) {
            EXPECT_TRUE(generation && before != after);
            continue;
        }
        ++answers;
        EXPECT_TRUE(changing.everHad(chosen, result.matchCount, before, after))
            << questions[chosen].query << ": " << result.matchCount;
        EXPECT_EQ(result.hits.size(), std::min<std::uint64_t>(limit, result.matchCount));
        for (const std::uint32_t hit : result.hits) {
            if (!isStill) break; // its numbers may mean something else by now
            EXPECT_NE(storage->foldedName(hit).find(questions[chosen].word), std::string::npos);
            EXPECT_FALSE(storage->is(hit, findflag::deleted));
        }
        if (::testing::Test::HasFailure()) break;
    }
    return answers;
}

TEST(FindSearchEngine, AnswersWhileTheIndexChanges) {
    ChangingIndex changing;
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 3; ++seed) {
        threads.emplace_back([&, seed] { EXPECT_GT(askUntil(isOver, seed, changing), 0); });
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    int changes = 0;
    while (std::chrono::steady_clock::now() < end || changes < 20) {
        changing.change();
        ++changes;
        std::this_thread::sleep_for(std::chrono::milliseconds(changes % 4));
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
}

} // namespace
} // namespace tidyro
