// Whether a storage that was read can be walked.
#include <algorithm>
#include <cstring>
#include <vector>

#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

namespace tidyro {

namespace {

using Entry = FindIndexStorage::Entry;
constexpr Entry none = FindIndexStorage::none;

/// Only the root's name may be empty.
bool areOffsetsSound(const FindIndexStorage& storage) {
    const auto starts = storage.nameStart.span();
    if (starts.size() != storage.parent.size() + 1 || starts.front() != 0 ||
        starts.back() != storage.names.size()) {
        return false;
    }
    bool isSound = starts.size() < 2 || starts[0] <= starts[1];
    for (std::size_t i = 2; i < starts.size(); ++i) isSound &= starts[i - 1] < starts[i];
    return isSound;
}

/// No folder holds such a name, and a path that is made of it would lead elsewhere.
bool areNamesPossible(const FindIndexStorage& storage) {
    const Entry count = storage.count();
    if (count == 0) return true;
    const std::string_view all(storage.names.data() + storage.nameStart[1],
                               storage.names.size() - storage.nameStart[1]);
    if (all.contains('/') || all.contains('\0')) return false;
    for (Entry entry = 1; entry < count; ++entry) {
        const std::string_view name = storage.name(entry);
        if (name.size() <= 2 && (name == "." || name == "..")) return false;
    }
    // Names that are said to be plain are folded without a look at them.
    for (Entry entry = 0; entry < count; ++entry) {
        const Entry from = entry;
        while (entry < count && !storage.is(entry, findflag::notASCII)) ++entry;
        const std::uint32_t start = storage.nameStart[from];
        if (!isASCII({storage.names.data() + start, storage.nameStart[entry] - start}))
            return false;
    }
    return true;
}

bool areColumnsEquallyLong(const FindIndexStorage& storage) {
    const std::size_t count = storage.parent.size();
    bool areAsLong = count < none;
    FindIndexStorage::visitStoredColumns([&](auto column) {
        if (column.length == FindColumnLength::entries) {
            areAsLong &= (storage.*column.values).size() == count;
        }
    });
    return areAsLong;
}

/// Every parent stands before what it holds, so no walk upwards goes round in a ring.
bool areParentsSound(const FindIndexStorage& storage) {
    constexpr std::uint8_t inherited = findflag::hidden | findflag::system;
    constexpr auto lastCategory = static_cast<std::uint8_t>(FindCategory::app);
    if (storage.count() == 0) return true;
    if (storage.parent[0] != none || storage.depth[0] != 0) return false;
    bool isSound = (storage.kind[0] & findkind::categoryMask) <= lastCategory;
    for (Entry entry = 1; entry < storage.count(); ++entry) {
        const Entry folder = storage.parent[entry];
        if (folder >= entry) return false;
        const unsigned above = storage.flags[folder];
        const int depth = std::min(storage.depth[folder] + 1, int{FindIndexStorage::maxDepth});
        isSound &= (above & findflag::folder) != 0;
        isSound &= (above & inherited & ~unsigned{storage.flags[entry]}) == 0;
        isSound &= storage.depth[entry] == depth;
        isSound &= (storage.kind[entry] & findkind::categoryMask) <= lastCategory;
    }
    return isSound;
}

/// One past the last of a folder's block, `none` when it does not end or holds what is not the
/// folder's.
Entry endOfBlock(const FindIndexStorage& storage, Entry folder) {
    for (Entry child = storage.firstChild[folder]; child < storage.count(); ++child) {
        if (storage.parent[child] != folder) return none;
        if ((storage.kind[child] & findkind::lastOfBlock) != 0) return child + 1;
    }
    return none;
}

/// How many entries stand in blocks; none when a block is not sound. No entry is in two, since it
/// names one folder, and a folder has one block.
std::optional<std::size_t> entriesInBlocks(const FindIndexStorage& storage) {
    std::size_t held = 0;
    for (Entry folder = 0; folder < storage.count(); ++folder) {
        const Entry first = storage.firstChild[folder];
        if (first == none) continue;
        const Entry end = endOfBlock(storage, folder);
        if (end == none) return std::nullopt;
        held += end - first;
    }
    return held;
}

bool areExtraChildrenSound(const FindIndexStorage& storage) {
    if (storage.extraChildren.empty()) return true;
    std::vector<bool> isSeen(storage.count(), false);
    for (const auto& [folder, children] : storage.extraChildren) {
        if (folder >= storage.count()) return false;
        const Entry first = storage.firstChild[folder];
        const Entry end = first == none ? none : endOfBlock(storage, folder);
        for (const Entry child : children) {
            if (child >= storage.count() || isSeen[child] || storage.parent[child] != folder) {
                return false;
            }
            if (first != none && child >= first && child < end) return false;
            isSeen[child] = true;
        }
    }
    return true;
}

std::size_t extraChildCount(const FindIndexStorage& storage) {
    std::size_t held = 0;
    for (const auto& [folder, children] : storage.extraChildren) held += children.size();
    return held;
}

bool areSizesSound(const FindIndexStorage& storage) {
    for (const auto& [entry, size] : storage.bigSizes) {
        if (entry >= storage.count() || size < FindIndexStorage::bigSize ||
            storage.size32[entry] != FindIndexStorage::bigSize) {
            return false;
        }
    }
    const auto big = std::ranges::count(storage.size32, FindIndexStorage::bigSize);
    return static_cast<std::size_t>(big) == storage.bigSizes.size();
}

std::int64_t countDeleted(const FindIndexStorage& storage) {
    std::int64_t deleted = 0;
    for (const std::uint8_t flags : storage.flags) deleted += (flags & findflag::deleted) != 0;
    return deleted;
}

} // namespace

std::expected<void, FindIndexPersistenceError>
FindIndexPersistence::validate(const FindIndexStorage& storage) {
    const auto inconsistent = [](const char* reason) {
        return std::unexpected(Error{Error::Inconsistent{reason}});
    };
    if (!areOffsetsSound(storage)) return inconsistent("name offsets");
    if (!areColumnsEquallyLong(storage) || !areNamesPossible(storage) ||
        !areParentsSound(storage) || countDeleted(storage) != storage.deletedCount) {
        return inconsistent("structure");
    }
    const auto inBlocks = entriesInBlocks(storage);
    if (!inBlocks) return inconsistent("structure");
    if (!areExtraChildrenSound(storage)) return inconsistent("extra children");
    // Every entry but the root is some folder's child.
    if (*inBlocks + extraChildCount(storage) + 1 != std::max<std::size_t>(storage.count(), 1)) {
        return inconsistent("structure");
    }
    if (!areSizesSound(storage)) return inconsistent("sizes");
    return {};
}

} // namespace tidyro
