#include "Rooms/Find/Services/Search/FindSearchEngine.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Machine/DedicatedThread.h"
#include "Rooms/Find/Services/Matching/FindBlockFilter.h"
#include "Rooms/Find/Services/Matching/FindQueryMatcher.h"
#include "Rooms/Find/Services/Query/FindQuery.h"
#include "Rooms/Find/Services/Search/BestHits.h"
#include "Rooms/Find/Services/Search/PlainSearch.h"

namespace tidyro {

namespace {

using Storage = FindIndex::Storage;

/// Matches up to this many are remembered: the next letter leaves some of them. Of more the filter
/// rules out most just as soon.
constexpr std::size_t maxRemembered = 20'000;
/// In a smaller index everything is looked through faster than a filter is made.
constexpr std::uint32_t minEntriesOfFilter = 10'000;

/// The word of a query that asks for nothing else than that it stands in the name; empty for any
/// other query.
std::string_view plainWord(const FindQueryNode& root) {
    if (root.kind != FindQueryNode::Kind::all || root.children.empty()) return {};
    const std::string_view word = root.children.front().text.folded;
    const bool isPlain = std::ranges::all_of(root.children, [word](const FindQueryNode& node) {
        return node.kind == FindQueryNode::Kind::text && !node.text.isCaseSensitive &&
               node.text.mode == FindTextMode::contains && !node.text.isInPath &&
               node.text.folded == word;
    });
    return isPlain ? word : std::string_view();
}

/// A storage and its generation.
struct Moment {
    Storage storage;
    std::uint64_t generation;
};

Moment momentOf(const FindIndex& index) {
    for (;;) { // until both are of one moment
        const std::uint64_t generation = index.generation();
        Storage storage = index.storage();
        if (generation == index.generation()) return {std::move(storage), generation};
    }
}

std::uint32_t workingFolder(const FindIndexStorage& storage,
                            const FindSearchEngine::Question& question) {
    if (question.workingFolder.empty()) return FindIndexStorage::none;
    return storage.lookup(question.workingFolder).value_or(FindIndexStorage::none);
}

FindSearchResult searchWholeLanguage(const FindIndexStorage& storage, const FindEntrySet& mask,
                                     const FindQuery& query, const FindBlockFilter* filter,
                                     const FindSearchEngine::Question& question) {
    const FindQueryMatcher matcher(storage, query, filter, question.cancel);
    FindEntrySet matches = matcher.matches(mask);
    const std::uint64_t count = matches.size();
    BestHits best(storage, question.limit, workingFolder(storage, question));
    const auto tiers = matcher.tiers(std::move(matches));
    for (const auto& tier : tiers) {
        if (best.isOut(tier.best)) break;
        tier.entries.forEach([&](std::uint32_t entry) {
            if (question.cancel.stop_requested() || best.isOut(entry, tier.best)) return;
            if (best.isOut(entry, matcher.bestPossibleFit(entry, tier.best))) return;
            best.offer(entry, matcher.fit(entry));
        });
    }
    if (question.cancel.stop_requested()) return {.wasCancelled = true};
    return {.hits = best.take(), .matchCount = count};
}

} // namespace

struct FindSearchEngine::Memory {
    /// Makes the filter of an index beside the searches, which do without until it is there.
    class FilterMaker {
      public:
        ~FilterMaker() { stop_.request_stop(); }

        /// The filter when it is ready and good for the storage. It is begun with the second search
        /// of an index: it takes longer to make than one search without it.
        std::shared_ptr<const FindBlockFilter> filter(const Storage& storage,
                                                      std::uint64_t generation) {
            if (generation == generation_) {
                begin(storage, generation);
                const bool isThere = made_ != nullptr && made_->isReady && made_->filter != nullptr;
                return isThere && made_->filter->covered() <= storage->count() ? made_->filter
                                                                               : nullptr;
            }
            leave(generation);
            return nullptr;
        }

        void begin(const Storage& storage, std::uint64_t generation) {
            if (generation != generation_) leave(generation);
            if (made_ != nullptr || storage->count() < minEntriesOfFilter) return;
            made_ = std::make_shared<Made>();
            try {
                thread_.emplace("Tidyro name filter", platform::Quality::utility,
                                [storage, made = made_, cancel = stop_.get_token()] {
                                    make(*made, *storage, cancel);
                                });
            } catch (const std::system_error&) {
                thread_.reset(); // no thread is left: searches go on without a filter
            }
        }

      private:
        struct Made {
            std::shared_ptr<const FindBlockFilter> filter;
            std::atomic<bool> isReady =
                false; ///< `filter` is not touched before and not changed after
        };

        static void make(Made& made, const FindIndexStorage& storage, const CancelToken& cancel) {
            try {
                made.filter = std::make_shared<const FindBlockFilter>(storage, cancel);
                made.isReady = true;
            } catch (const std::bad_alloc&) {
                made.filter = nullptr; // no memory is left: searches go on without it
            }
        }

        /// What there is of another index goes.
        void leave(std::uint64_t generation) {
            stop_.request_stop();
            thread_.reset(); // joins
            stop_ = std::stop_source();
            made_ = nullptr;
            generation_ = generation;
        }

        std::optional<std::uint64_t> generation_;
        std::shared_ptr<Made> made_;
        std::stop_source stop_;
        std::optional<platform::DedicatedThread> thread_;
    };

    /// The matches of the last query, among which those of a longer one are.
    struct LastMatches {
        Storage storage;
        FindScope scope;
        std::string word;
        std::vector<std::uint32_t> entries;
    };

    FilterMaker filters;
    std::optional<LastMatches> last;

    FindSearchResult searchWord(const Storage& storage, const FindEntrySet& mask,
                                std::string_view word, const FindBlockFilter* filter,
                                const Question& question) {
        PlainSearch search({.storage = *storage,
                            .mask = mask,
                            .filter = filter,
                            .word = word,
                            .limit = question.limit,
                            .workingFolder = workingFolder(*storage, question),
                            .cancel = question.cancel,
                            .maxRemembered = maxRemembered});
        const bool isNarrower = last && last->storage == storage &&
                                last->scope == question.scopeMask &&
                                word.find(last->word) != std::string_view::npos;
        if (isNarrower) {
            search.runOver(last->entries);
        } else {
            search.run();
        }
        last.reset();
        if (search.hasRememberedAll() && !search.wasCancelled()) {
            last = LastMatches{.storage = storage,
                               .scope = question.scopeMask,
                               .word = std::string(word),
                               .entries = search.takeMatches()};
        }
        return {.hits = search.takeHits(),
                .matchCount = search.matchCount(),
                .wasCancelled = search.wasCancelled()};
    }
};

FindSearchEngine::FindSearchEngine() : memory_(std::make_unique<Memory>()) {}

FindSearchEngine::~FindSearchEngine() = default;

void FindSearchEngine::prepare(const FindIndex& index) {
    const Moment moment = momentOf(index);
    if (moment.storage != nullptr) memory_->filters.begin(moment.storage, moment.generation);
}

FindSearchResult FindSearchEngine::search(std::string_view query, const Question& question) {
    const auto [storage, generation] = momentOf(question.in);
    // An index that was replaced must not be kept for what a next letter might use of it.
    auto& last = memory_->last;
    if (last && last->storage != storage) last.reset();
    if (question.generation && *question.generation != generation) {
        return {.generation = generation, .wasCancelled = true};
    }
    if (storage == nullptr || storage->count() == 0) return {.generation = generation};
    const FindQuery parsed = parsedFindQuery(query, question.now);
    const auto mask = question.in.mask(storage, question.scopeMask);
    const std::string_view word = plainWord(parsed.root);
    const auto filter = memory_->filters.filter(storage, generation);
    FindSearchResult result =
        word.empty() ? searchWholeLanguage(*storage, *mask, parsed, filter.get(), question)
                     : memory_->searchWord(storage, *mask, word, filter.get(), question);
    result.generation = generation;
    result.problem = parsed.problem;
    return result;
}

} // namespace tidyro
