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

/// Answers queries over an index, one for each key that a person presses.
///
///     FindSearchEngine engine;
///     const auto found = engine.search("readme", {.in = index, .limit = 500, .now = now});
///
/// The same index, query and moment give the same hits in the same order: the whole name, then the
/// name without its extension, then names that begin with it, then words in names that do, then
/// anywhere; within one of these what lies less deep, then the shorter name, then what was modified
/// later, then by path.
///
/// An engine remembers what helps the next query and is used by one thread at a time; the index may
/// change meanwhile, a search goes on with what it began with.
class FindSearchEngine {
  public:
    struct Question {
        const FindIndex& in;
        FindScope scopeMask = {};
        /// Of the index whose numbers the hits are meant to be: a search for one that has been
        /// replaced meanwhile ends at once, as cancelled. Absent: whichever there is.
        std::optional<std::uint64_t> generation = std::nullopt;
        std::size_t limit = 500;
        Timestamp now; ///< says which day a query means by "today"
        CancelToken cancel = {};
    };

    FindSearchEngine();
    ~FindSearchEngine();
    FindSearchEngine(const FindSearchEngine&) = delete;
    FindSearchEngine& operator=(const FindSearchEngine&) = delete;

    /// Begins to make ready, beside the caller, what lets searches of this index pass over most
    /// names; with it a letter takes 1 ms in a million names rather than 10. For whoever waits for
    /// a person to type: otherwise the second search begins it. Takes 23 bytes an entry.
    void prepare(const FindIndex& index);

    [[nodiscard]] FindSearchResult search(std::string_view query, const Question& question);

  private:
    struct Memory;
    std::unique_ptr<Memory> memory_;
};

} // namespace tidyro
