#include "Rooms/Find/Services/FindSearchEngine.h"

#include <atomic>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DedicatedThread.h"
#include "Rooms/Find/Services/BestHits.h"
#include "Rooms/Find/Services/FindBlockFilter.h"
#include "Rooms/Find/Services/FindQuery.h"
#include "Rooms/Find/Services/FindQueryMatcher.h"
#include "Rooms/Find/Services/PlainSearch.h"

namespace tidyro {

namespace {

using Storage = FindIndex::Storage;

/// Matches up to this many are remembered: the next letter leaves some of them.
constexpr std::size_t mostRemembered = 100'000;
/// In a smaller index everything is looked through faster than a filter is made.
constexpr std::uint32_t fewEntries = 10'000;

/// The words of a query that asks for nothing else than that all of them stand in the name; none
/// for any other query.
std::vector<std::string> plainWords(const FindQueryNode& root) {
    if (root.kind != FindQueryNode::Kind::all) return {};
    std::vector<std::string> words;
    for (const FindQueryNode& node : root.children) {
        const bool isPlain = node.kind == FindQueryNode::Kind::text && !node.text.matchesCase &&
                             node.text.mode == FindTextMode::contains && !node.text.inPath &&
                             !node.text.folded.empty();
        if (!isPlain) return {};
        words.push_back(node.text.folded);
    }
    return words;
}

/// Makes the filter of an index beside the searches, which do without until it is there.
class FilterMaker {
  public:
    ~FilterMaker() { stop_.request_stop(); }

    /// The filter when it is ready and good for the storage; otherwise it is begun.
    std::shared_ptr<const FindBlockFilter> filter(const Storage& of, std::uint64_t generation) {
        if (of->count() < fewEntries) return nullptr;
        if (generation != generation_) {
            stop_.request_stop();
            thread_.reset(); // joins
            stop_ = std::stop_source();
            made_ = std::make_shared<Made>();
            generation_ = generation;
            thread_.emplace("Tidyro name filter", platform::Quality::utility,
                            [storage = of, made = made_, cancel = stop_.get_token()] {
                                made->filter =
                                    std::make_shared<const FindBlockFilter>(*storage, cancel);
                                made->isReady = true;
                            });
        }
        return made_->isReady ? made_->filter : nullptr;
    }

  private:
    struct Made {
        std::shared_ptr<const FindBlockFilter> filter;
        std::atomic<bool> isReady = false; ///< `filter` is not touched before and not changed after
    };

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

FindSearchResult searchOneByOne(const FindIndexStorage& storage, const FindIndex::Mask& mask,
                                const FindQuery& query,
                                const FindSearchEngine::Question& question) {
    constexpr std::uint32_t entriesBetweenLooks = 4'096;
    FindQueryMatcher matcher(storage, query);
    BestHits best(storage, question.limit);
    FindSearchResult result;
    for (std::uint32_t entry = 0; entry < storage.count(); ++entry) {
        if (entry % entriesBetweenLooks == 0 && question.cancel.stop_requested()) {
            result.wasCancelled = true;
            break;
        }
        if (!mask.has(entry) || !matcher.matches(entry)) continue;
        ++result.matchCount;
        if (best.isOut(FindNameRank::wholeName)) continue;
        best.offer(entry, static_cast<FindNameRank>(matcher.rank(entry)));
    }
    result.hits = best.take();
    return result;
}

} // namespace

struct FindSearchEngine::Memory {
    FilterMaker filters;
    std::optional<LastMatches> last;

    FindSearchResult searchWords(const Storage& storage, std::uint64_t generation,
                                 const FindIndex::Mask& mask, const std::vector<std::string>& words,
                                 const Question& question) {
        const auto filter = filters.filter(storage, generation);
        PlainSearch search({.storage = *storage,
                            .mask = mask,
                            .filter = filter.get(),
                            .words = words,
                            .limit = question.limit,
                            .cancel = question.cancel,
                            .mostRemembered = mostRemembered});
        const bool narrows = last && last->storage == storage &&
                             last->scope == question.scopeMask &&
                             words.front().find(last->word) != std::string::npos;
        if (narrows) {
            search.runOver(last->entries);
        } else {
            search.run();
        }
        last.reset();
        if (search.remembersMatches() && !search.wasCancelled() && words.size() == 1) {
            last = LastMatches{.storage = storage,
                               .scope = question.scopeMask,
                               .word = words.front(),
                               .entries = search.takeMatches()};
        }
        return {.hits = search.takeHits(),
                .matchCount = search.matchCount(),
                .wasCancelled = search.wasCancelled()};
    }
};

FindSearchEngine::FindSearchEngine() : memory_(std::make_unique<Memory>()) {}

FindSearchEngine::~FindSearchEngine() = default;

FindSearchResult FindSearchEngine::search(std::string_view query, const Question& question) {
    Storage storage;
    std::uint64_t generation = 0;
    do { // until both are of one moment
        generation = question.in.generation();
        storage = question.in.storage();
    } while (generation != question.in.generation());
    if (question.generation && *question.generation != generation) return {.wasCancelled = true};
    if (storage == nullptr || storage->count() == 0) return {};
    const FindQuery parsed = parsedFindQuery(query, question.now);
    const auto mask = question.in.mask(storage, question.scopeMask);
    const std::vector<std::string> words = plainWords(parsed.root);
    FindSearchResult result =
        words.empty() ? searchOneByOne(*storage, *mask, parsed, question)
                      : memory_->searchWords(storage, generation, *mask, words, question);
    result.problem = parsed.problem;
    return result;
}

} // namespace tidyro
