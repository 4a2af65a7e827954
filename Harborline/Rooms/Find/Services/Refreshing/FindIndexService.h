#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Query/FindQuery.h"
#include "Rooms/Find/Services/Refreshing/FindIndexRefresh.h"
#include "Rooms/Find/Services/Saving/FindIndexPair.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

namespace tidyro {

/// Keeps the index of one root: opens it, makes it true, builds and saves it, and answers queries
/// with what is still there.
///
///     FindIndexService service({.rootPath = "/home/ada", .file = url});
///     if (!service.open(Timestamp::now()) || !service.refresh()) service.build();
///     const auto answer = service.search(engine, "readme", {.in = service.index(), .now = now});
///
/// One thread at a time calls it. The index itself may be searched by others meanwhile.
class FindIndexService {
  public:
    struct Options {
        std::string rootPath;
        FileURL file; ///< of the index; its pair lies beside it
        FindIndexRefresh::Options refresh = {};
    };
    explicit FindIndexService(Options options) : options_(std::move(options)) {}

    [[nodiscard]] const FindIndex& index() const { return index_; }

    /// Opens the kept index. The error is a sentence for people, or empty when none is kept: the
    /// index is then to be built. A kept index of another root, or from the future, is of no use.
    [[nodiscard]] std::expected<void, std::string> open(Timestamp now);

    struct Refreshed {
        std::int64_t lookedAt; ///< folders
        std::int64_t read;     ///< folders among them
        bool isWorthSaving;    ///< one of a hundred folders or names has changed
    };
    /// Makes the open index true. After an error it is to be built.
    [[nodiscard]] std::expected<Refreshed, FindIndexRefresh::Error>
    refresh(const FindIndexRefresh::ProgressHandler& progress = nullptr,
            const CancelToken& cancel = {});

    [[nodiscard]] std::expected<void, FindIndexBuilder::Error>
    build(const FindIndexBuilder::ProgressHandler& progress = nullptr,
          const CancelToken& cancel = {});

    /// Saves the index, without what was deleted when that is much.
    [[nodiscard]] std::expected<void, FindIndexPersistenceError> save(Timestamp now);

    struct Answer {
        FindSearchResult found;
        /// Too many sizes and dates count for the query to be looked at: they are as old as this.
        std::optional<Timestamp> sizesAsOf = std::nullopt;
    };
    /// Searches. Hits are looked at before they are returned, and so are the files whose sizes or
    /// dates the query asks for, up to `FindEntryLooks::maxCandidates`. What has gone is left out
    /// and told to the index.
    [[nodiscard]] Answer search(FindSearchEngine& engine, std::string_view query,
                                const FindSearchEngine::Question& question);

  private:
    /// Looks at entries and tells the index. Whether anything differed.
    bool lookAt(std::span<const std::uint32_t> entries, const CancelToken& cancel);
    /// The files whose sizes and dates decide on the query; none when it asks for no such thing.
    [[nodiscard]] std::optional<FindEntrySet>
    candidates(const FindQuery& query, const FindSearchEngine::Question& question) const;

    Options options_;
    FindIndex index_;
};

} // namespace tidyro
