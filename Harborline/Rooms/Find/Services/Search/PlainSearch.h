#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/Cancellation.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindBlockFilter.h"
#include "Rooms/Find/Services/Matching/NeedleFinder.h"
#include "Rooms/Find/Services/Search/BestHits.h"

namespace tidyro {

/// The search that almost every key starts: for names that hold one word, anywhere. Only matches
/// that may be among the best are ranked. One search is run once, by one thread.
class PlainSearch {
  public:
    struct Options {
        const FindIndexStorage& storage;
        const FindEntrySet& mask;      ///< what takes part
        const FindBlockFilter* filter; ///< null: none is ready
        std::string_view word;         ///< folded, not empty
        std::size_t limit;
        std::uint32_t workingFolder; ///< see `BestHits`
        CancelToken cancel;
        /// More matches than this are not kept for the next query.
        std::size_t maxRemembered;
    };
    explicit PlainSearch(const Options& options);

    void run();
    /// Searches these entries only; no other may match.
    void runOver(std::span<const std::uint32_t> entries);

    [[nodiscard]] std::uint64_t matchCount() const { return matchCount_; }
    [[nodiscard]] bool wasCancelled() const { return wasCancelled_; }
    [[nodiscard]] std::vector<std::uint32_t> takeHits() { return best_.take(); }
    /// All matches in the order of the entries; empty when there were too many to remember.
    [[nodiscard]] std::vector<std::uint32_t> takeMatches() { return std::move(matches_); }
    [[nodiscard]] bool hasRememberedAll() const { return isRemembering_; }

  private:
    using InNames = NeedleFinder::InNames;

    void take(std::size_t word, const InNames& found);
    void offer(std::size_t word, std::uint64_t entries, FindNameRank best);
    void rankAwaited();
    void remember(std::size_t word, std::uint64_t entries);

    Options options_;
    const FindIndexStorage& storage_;
    NeedleFinder finder_;
    BestHits best_;
    std::uint64_t matchCount_ = 0;
    bool wasCancelled_ = false;
    bool isRemembering_ = true;
    std::vector<std::uint32_t> matches_;
    std::array<std::uint32_t, 32> awaited_{}; ///< entries whose names are on their way
    std::size_t awaitedCount_ = 0;
    std::vector<std::uint64_t> left_; ///< matches that do not begin with the word
};

} // namespace tidyro
