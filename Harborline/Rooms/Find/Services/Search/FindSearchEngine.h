#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Index/FindIndex.h"

namespace tidyro {

/// What a search found.
struct FindSearchResult {
    std::vector<std::uint32_t> hits = {}; ///< entries, the best first, at most `limit`
    std::uint64_t matchCount = 0;         ///< of all matches, not only of the hits
    /// That of the index that was searched. The hits mean nothing in another generation.
    std::uint64_t generation = 0;
    bool wasCancelled = false; ///< hits and count are incomplete
    /// Why a part of the query was taken for plain words; one sentence for people.
    std::optional<std::string> problem = std::nullopt;
    bool operator==(const FindSearchResult&) const = default;
};

/// Answers queries over an index, as fast as a person types them.
///
///     FindSearchEngine engine;
///     const auto found = engine.search("readme", {.in = index, .limit = 500, .now = now});
///
/// Hits are in the order of `BestHits`: first those that hold all words in the name; then by where
/// the text stands in it and by the place (`FindPlaces`), both added up; then by depth, length of
/// the name, date and path. The same index, query
/// and moment give the same hits.
///
/// An engine keeps what helps the next query. One thread at a time uses it. The index may change
/// during a search, which goes on with the storage that it began with. No search fails: a query
/// that cannot be read as it was meant has a `problem`.
class FindSearchEngine {
  public:
    struct Question {
        const FindIndex& in;
        FindScope scopeMask = {};
        /// The generation that the caller can use hits of. When the index has another one, the
        /// search ends at once, as cancelled. Absent, any generation is searched.
        std::optional<std::uint64_t> generation = std::nullopt;
        std::size_t limit = 500;
        Timestamp now; ///< says which day a query means by "today"
        /// The path of the folder that one works in, or nothing: of hits that are equally good,
        /// what lies in it comes first.
        std::string_view workingFolder = {};
        CancelToken cancel = {};
    };

    FindSearchEngine();
    ~FindSearchEngine();
    FindSearchEngine(const FindSearchEngine&) = delete;
    FindSearchEngine& operator=(const FindSearchEngine&) = delete;

    /// Begins to make the filter of this index, on a thread of its own, and returns at once. With
    /// the filter a search passes over most names unread; FindBlockFilter says what it takes. Call
    /// it before a person begins to type: otherwise the second search of an index begins it.
    void prepare(const FindIndex& index);

    [[nodiscard]] FindSearchResult search(std::string_view query, const Question& question);

  private:
    struct Memory;
    std::unique_ptr<Memory> memory_;
};

} // namespace tidyro
