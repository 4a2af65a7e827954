#include "Rooms/Find/Services/Refreshing/FindIndexService.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Rooms/Find/Services/Matching/FindQueryMatcher.h"
#include "Rooms/Find/Services/Refreshing/FindEntryLooks.h"

namespace tidyro {

namespace {

using Kind = FindQueryNode::Kind;

/// What a file's size or date decides on.
bool isOfSizeOrDate(const FindQueryNode& node) {
    return node.kind == Kind::size || node.kind == Kind::date || node.kind == Kind::empty;
}

bool asksForSizeOrDate(const FindQueryNode& node) {
    return isOfSizeOrDate(node) || std::ranges::any_of(node.children, asksForSizeOrDate);
}

enum class UnknownIs : bool { met, notMet };

/// Takes every size and date for what lets more entries match.
void relax(FindQueryNode& node, UnknownIs unknown) {
    if (isOfSizeOrDate(node)) {
        node = {.kind = Kind::all};
        if (unknown == UnknownIs::met) return;
        FindQueryNode never{.kind = Kind::none};
        never.children.push_back(std::move(node));
        node = std::move(never);
        return;
    }
    if (node.kind == Kind::none) {
        unknown = unknown == UnknownIs::met ? UnknownIs::notMet : UnknownIs::met;
    }
    for (FindQueryNode& child : node.children) relax(child, unknown);
    if (node.kind != Kind::all) return;
    std::erase_if(node.children, [](const FindQueryNode& child) {
        return child.kind == Kind::all && child.children.empty();
    });
}

} // namespace

std::expected<void, std::string> FindIndexService::open(Timestamp now) {
    auto kept = FindIndexPair::read(options_.file);
    const std::string path = options_.file.path();
    if (!kept) {
        if (std::holds_alternative<FindIndexPersistenceError::Unreadable>(kept.error().kind)) {
            return std::unexpected(std::string());
        }
        return std::unexpected(path + ": " + kept.error().description());
    }
    if (kept->storage.rootPath != options_.rootPath) {
        return std::unexpected(path + " is the index of " + kept->storage.rootPath);
    }
    constexpr double maxAhead = 2; // seconds; clocks are set while they run
    const Timestamp latest = now.adding(maxAhead);
    if (kept->metadata.builtAt > latest || kept->metadata.savedAt > latest) {
        return std::unexpected(path + " was made in the future");
    }
    index_.replace(std::move(kept->storage), kept->metadata);
    return {};
}

std::expected<FindIndexService::Refreshed, FindIndexRefresh::Error>
FindIndexService::refresh(const FindIndexRefresh::ProgressHandler& progress,
                          const CancelToken& cancel) {
    const FindIndex::Storage before = index_.storage();
    if (before == nullptr) return std::unexpected(FindIndexRefresh::RootChanged{});
    auto changes = FindIndexRefresh(options_.refresh).look(*before, progress, cancel);
    if (!changes) return std::unexpected(changes.error());
    Refreshed refreshed{
        .lookedAt = changes->lookedAt, .read = changes->read, .isWorthSaving = false};
    const bool isSame = changes->folders.empty() && changes->deniedCount == before->deniedCount;
    if (isSame) return refreshed;
    const auto changedFolders = static_cast<std::int64_t>(changes->folders.size());
    FindIndexStorage storage = *before;
    if (!FindIndexRefresh::apply(*std::move(changes), storage)) {
        return std::unexpected(FindIndexRefresh::RootChanged{});
    }
    constexpr std::int64_t share = 100;
    const std::int64_t changedNames = std::int64_t{storage.count()} - before->count() +
                                      storage.deletedCount - before->deletedCount;
    refreshed.isWorthSaving = changedFolders * share >= refreshed.lookedAt ||
                              changedNames * share >= std::int64_t{before->count()};
    index_.update(std::move(storage), index_.metadata());
    return refreshed;
}

std::expected<void, FindIndexBuilder::Error>
FindIndexService::build(const FindIndexBuilder::ProgressHandler& progress,
                        const CancelToken& cancel) {
    const Timestamp now = Timestamp::now();
    auto storage = FindIndexBuilder({.rootPath = options_.rootPath,
                                     .skipping = options_.refresh.skipping,
                                     .skippingContentsOf = options_.refresh.skippingContentsOf,
                                     .workerCount = options_.refresh.workerCount})
                       .run(progress, cancel);
    if (!storage) return std::unexpected(storage.error());
    index_.replace(*std::move(storage), {.builtAt = now, .savedAt = now});
    return {};
}

std::expected<void, FindIndexPersistenceError> FindIndexService::save(Timestamp now) {
    const FindIndex::Storage storage = index_.storage();
    if (storage == nullptr) return {};
    FindIndexMetadata metadata = index_.metadata();
    metadata.savedAt = now;
    constexpr std::int64_t share = 20;
    const bool holdsMuchDeleted = storage->deletedCount * share > std::int64_t{storage->count()};
    return FindIndexPair::write(holdsMuchDeleted ? storage->compacted() : *storage, metadata,
                                options_.file);
}

bool FindIndexService::lookAt(std::span<const std::uint32_t> entries, const CancelToken& cancel) {
    const FindIndex::Storage before = index_.storage();
    const auto seen = FindEntryLooks::look(*before, entries, cancel);
    if (seen.empty()) return false;
    FindIndexStorage storage = *before;
    FindEntryLooks::apply(seen, storage);
    index_.update(std::move(storage), index_.metadata());
    return true;
}

std::optional<FindEntrySet>
FindIndexService::candidates(const FindQuery& query,
                             const FindSearchEngine::Question& question) const {
    if (!asksForSizeOrDate(query.root)) return std::nullopt;
    FindQuery relaxed = query;
    relax(relaxed.root, UnknownIs::met);
    const FindIndex::Storage storage = index_.storage();
    FindEntrySet found = FindQueryMatcher(*storage, relaxed, nullptr, question.cancel)
                             .matches(*index_.mask(storage, question.scopeMask));
    found.keepWhere([&](std::uint32_t entry) { return !storage->is(entry, findflag::folder); });
    return found;
}

FindIndexService::Answer FindIndexService::search(FindSearchEngine& engine, std::string_view query,
                                                  const FindSearchEngine::Question& question) {
    Answer answer;
    const FindIndex::Storage storage = index_.storage();
    const bool isOther = question.generation && *question.generation != index_.generation();
    if (storage != nullptr && storage->count() > 0 && !isOther) {
        const auto found = candidates(parsedFindQuery(query, question.now), question);
        if (found && found->size() > FindEntryLooks::maxCandidates) {
            answer.sizesAsOf = index_.metadata().builtAt;
        } else if (found) {
            std::vector<std::uint32_t> entries;
            entries.reserve(found->size());
            found->forEach([&](std::uint32_t entry) { entries.push_back(entry); });
            lookAt(entries, question.cancel);
        }
    }
    // What went away leaves room for other hits, which are looked at in turn. A folder that empties
    // all the time must not keep a person waiting.
    constexpr int maxRounds = 3;
    for (int round = 1; round <= maxRounds; ++round) {
        answer.found = engine.search(query, question);
        if (answer.found.wasCancelled || answer.found.hits.empty()) break;
        if (!lookAt(answer.found.hits, question.cancel)) break;
    }
    const FindIndex::Storage last = index_.storage();
    const auto gone = std::erase_if(
        answer.found.hits, [&](std::uint32_t entry) { return last->isDeletedOrInside(entry); });
    answer.found.matchCount -= std::min<std::uint64_t>(gone, answer.found.matchCount);
    return answer;
}

} // namespace tidyro
