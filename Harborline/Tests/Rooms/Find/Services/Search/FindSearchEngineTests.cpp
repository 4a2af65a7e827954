// Random searches against a naive one: the same hits in the same order, the same count.
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Search/FindRandomQueries.h"
#include "Rooms/Find/Services/Search/NaiveFind.h"

namespace tidyro {
namespace {

using testing::NaiveFind;
using testing::RandomQueries;
using testing::RandomSource;
using testing::RandomTree;

constexpr std::size_t all = 1'000'000;
const Timestamp now = Timestamp::since1970(testing::randomTreeNow);

/// What a result lacks of another one, in a few lines.
std::string difference(const FindIndexStorage& storage, const FindSearchResult& expected,
                       const FindSearchResult& got) {
    std::string text = "expected " + std::to_string(expected.matchCount) + " matches, got " +
                       std::to_string(got.matchCount) + "; problem \"" +
                       expected.problem.value_or("") + "\", got \"" + got.problem.value_or("") +
                       "\"" + (got.wasCancelled ? ", cancelled" : "");
    const auto path = [&storage](const FindSearchResult& result, std::size_t at) {
        return at < result.hits.size() ? terminalSafe(storage.path(result.hits[at])) : "nothing";
    };
    for (std::size_t i = 0; i < std::max(expected.hits.size(), got.hits.size()); ++i) {
        if (path(expected, i) == path(got, i)) continue;
        return text + "\n  hit " + std::to_string(i) + ": expected " + path(expected, i) +
               "\n  got " + path(got, i);
    }
    return text;
}

/// One index, the truth about it, and questions of it.
class Searches {
  public:
    Searches(unsigned seed, const RandomTree::Options& options)
        : seed_(seed), random_(seed), tree_(random_, options), queries_(random_, tree_) {
        index_.replace(tree_.storage(), {});
    }

    RandomTree& tree() { return tree_; }
    RandomQueries& queries() { return queries_; }

    void takeUpdates() {
        index_.update(tree_.storage(), {});
        naive_.reset();
    }
    void takeNewNumbers() {
        index_.replace(tree_.storage(), {});
        naive_.reset();
    }
    void changeScope() {
        scope_ = {.hidden = !random_.oneIn(3),
                  .system = !random_.oneIn(3),
                  .packageContents = !random_.oneIn(3)};
    }

    /// By each of the engines, which have different pasts.
    void expectSame(const std::string& query, const std::vector<FindSearchEngine*>& engines) {
        if (!naive_) naive_.emplace(tree_.storage());
        constexpr std::array<std::size_t, 6> limits{0, 1, 7, 500, 500, all};
        const std::size_t limit = random_.oneOf(limits);
        auto expected = naive_->search(query, {.scope = scope_, .limit = limit, .now = now});
        expected.generation = index_.generation();
        for (std::size_t i = 0; i < engines.size(); ++i) {
            const auto got = engines[i]->search(
                query, {.in = index_, .scopeMask = scope_, .limit = limit, .now = now});
            EXPECT_TRUE(got == expected)
                << "seed " << seed_ << ", engine " << i << ", query <" << terminalSafe(query)
                << ">, limit " << limit << ", scope " << scope_.hidden << scope_.system
                << scope_.packageContents << "\n"
                << difference(tree_.storage(), expected, got);
        }
        found_ += expected.matchCount > 0 ? 1 : 0;
    }
    /// How many of the queries found something.
    [[nodiscard]] std::size_t found() const { return found_; }

  private:
    unsigned seed_;
    RandomSource random_;
    RandomTree tree_;
    RandomQueries queries_;
    FindIndex index_;
    FindScope scope_;
    std::optional<NaiveFind> naive_; ///< of the tree as it is
    std::size_t found_ = 0;
};

TEST(FindSearchEngine, FindsWhatANaiveSearchFinds) {
    constexpr unsigned seeds = 24;
    constexpr std::size_t perSeed = 60;
    std::size_t found = 0;
    for (unsigned seed = 1; seed <= seeds; ++seed) {
        Searches searches(seed, {.entries = 20 + seed * 12,
                                 .rootPath = seed % 4 == 0 ? "/" : "/home/Ad\u00E1",
                                 .isDeep = seed % 8 == 1});
        FindSearchEngine engine; // remembers
        for (std::size_t i = 0; i < perSeed; ++i) {
            if (i % 10 == 5) {
                for (int changes = 0; changes < 4; ++changes) searches.tree().change();
                searches.takeUpdates();
            }
            if (i == perSeed - 10) {
                searches.tree().compact();
                searches.takeNewNumbers();
            }
            if (i % 5 == 4) searches.changeScope();
            searches.expectSame(searches.queries().query(), {&engine});
            if (HasFailure()) return;
        }
        found += searches.found();
    }
    EXPECT_GT(found, seeds * perSeed / 3); // or the queries are not worth asking
}

TEST(FindSearchEngine, FindsTheSameLetterByLetter) {
    for (unsigned seed = 101; seed <= 112; ++seed) {
        Searches searches(seed, {.entries = 300});
        FindSearchEngine engine;
        for (int i = 0; i < 6; ++i) {
            const std::string words = searches.queries().words();
            for (std::size_t length = 0; length <= words.size(); ++length) {
                if (length == 4 && i % 3 == 1) searches.changeScope();
                if (length == 5 && i % 3 == 2) {
                    searches.tree().change();
                    searches.takeUpdates();
                }
                searches.expectSame(words.substr(0, length), {&engine});
            }
            for (std::size_t length = words.size(); length > 0; length /= 2) {
                searches.expectSame(words.substr(0, length), {&engine});
            }
            if (HasFailure()) return;
        }
    }
}

/// What helps a search in a large index is made beside the first searches: one engine has it after
/// a while, a fresh one never.
TEST(FindSearchEngine, FindsTheSameInALargeIndex) {
    Searches searches(201, {.entries = 12'000});
    FindSearchEngine engine;
    const auto ask = [&](const std::string& query) {
        FindSearchEngine fresh;
        searches.expectSame(query, {&engine, &fresh});
    };
    const auto typeWords = [&] {
        const std::string words = searches.queries().words();
        for (std::size_t length = 1; length <= std::min<std::size_t>(words.size(), 8); ++length) {
            ask(words.substr(0, length));
        }
    };
    ask("a");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (int round = 0; round < 5 && !HasFailure(); ++round) {
        for (int i = 0; i < 12; ++i) ask(searches.queries().words());
        for (int i = 0; i < 4; ++i) ask(searches.queries().query());
        typeWords();
        for (const std::string often :
             {"a", "z", "2", "aa", "\u00E9", ".", "\u30AC", "r ph", "a im", "2 re", "p .t"}) {
            ask(often);
        }
        // The first rounds change the index, the fourth gives it new numbers.
        for (int i = 0; i < 40; ++i) searches.tree().change();
        if (round == 3) {
            searches.tree().compact();
            searches.takeNewNumbers();
        } else {
            searches.takeUpdates();
        }
    }
    EXPECT_GT(searches.found(), 60);
}

/// What an engine remembers of one index is nothing to another one.
TEST(FindSearchEngine, FindsTheSameInTwoIndexesByTurns) {
    Searches first(301, {.entries = 10'500});
    Searches second(302, {.entries = 11'000});
    FindSearchEngine engine;
    for (int i = 0; i < 8 && !HasFailure(); ++i) {
        const std::string words = i < 4 ? "a" : second.queries().words();
        first.expectSame(words, {&engine});
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        second.expectSame(words, {&engine});
    }
}

} // namespace
} // namespace tidyro
