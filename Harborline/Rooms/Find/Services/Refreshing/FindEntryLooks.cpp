#include "Rooms/Find/Services/Refreshing/FindEntryLooks.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <optional>
#include <string>
#include <system_error>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

namespace {

using Seen = FindEntryLooks::Seen;

/// What differs; none when nothing does.
std::optional<Seen> lookAt(const FindIndexStorage& index, FindIndexStorage::Entry entry) {
    const auto found = platform::fileMetadata(index.path(entry));
    const bool isFolder = index.is(entry, findflag::folder);
    Seen seen{
        .entry = entry, .isGone = false, .size = index.size(entry), .modified = index.mtime[entry]};
    if (!found) {
        seen.isGone = platform::hasVanished(found.error());
        return seen.isGone ? std::optional(seen) : std::nullopt;
    }
    seen.isGone = (found->kind == platform::ItemKind::folder) != isFolder;
    if (seen.isGone) return seen;
    if (!isFolder) seen.size = found->byteCount;
    if (const auto& modified = found->modified) {
        seen.modified =
            compactSeconds(static_cast<std::int64_t>(std::floor(modified->secondsSince1970())));
    }
    const bool isSame = seen.size == index.size(entry) && seen.modified == index.mtime[entry];
    return isSame ? std::nullopt : std::optional(seen);
}

} // namespace

std::vector<Seen> FindEntryLooks::look(const FindIndexStorage& index,
                                       std::span<const Entry> entries, const CancelToken& cancel) {
    constexpr std::size_t entriesOfAPart = 512;
    constexpr std::size_t maxThreads = 4;
    const std::size_t parts = (entries.size() + entriesOfAPart - 1) / entriesOfAPart;
    std::vector<std::vector<Seen>> seen(parts);
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t part = next++; part < parts; part = next++) {
            const std::size_t from = part * entriesOfAPart;
            const std::size_t count = std::min(entriesOfAPart, entries.size() - from);
            for (const Entry entry : entries.subspan(from, count)) {
                if (cancel.stop_requested()) return;
                if (const auto differs = lookAt(index, entry)) seen[part].push_back(*differs);
            }
        }
    };
    std::vector<platform::DedicatedThread> others;
    others.reserve(maxThreads);
    for (std::size_t more = 1; more < std::min(parts, maxThreads); ++more) {
        try {
            others.emplace_back("Tidyro look", platform::Quality::userInitiated, work);
        } catch (const std::system_error&) {
            break; // the limit on threads; those that run do the work
        }
    }
    work();
    others.clear(); // joins
    std::vector<Seen> all;
    for (const auto& part : seen) all.insert(all.end(), part.begin(), part.end());
    return all;
}

void FindEntryLooks::apply(std::span<const Seen> seen, FindIndexStorage& index) {
    for (const Seen& look : seen) {
        if (index.isDeletedOrInside(look.entry)) continue;
        if (look.isGone) {
            index.markDeleted(look.entry);
            continue;
        }
        index.mtime[look.entry] = look.modified;
        if (index.is(look.entry, findflag::folder)) continue;
        const std::uint64_t before = index.size(look.entry);
        index.setSize(look.size, look.entry);
        index.addToAncestors(look.entry, static_cast<std::int64_t>(look.size - before));
    }
}

} // namespace tidyro
