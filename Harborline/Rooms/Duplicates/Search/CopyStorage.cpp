#include "Rooms/Duplicates/Search/CopyStorage.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Base/Saturating.h"

namespace tidyro {

namespace {

using Ranges = std::vector<platform::FileBlocks::Range>;

bool hasKnownPlace(const ProvenFile& file) { return file.blocks && file.blocks->isWhole; }

/// What a file takes that shares nothing. A file with holes takes less than it holds, and one that
/// ends inside a block counts as what it holds.
std::uint64_t takenAlone(const ProvenFile& file) {
    return std::min(file.bytes, file.allocatedBytes);
}

} // namespace

CopyStorage CopyStorage::measure(std::span<const ProvenFile* const> files) {
    CopyStorage storage;
    storage.copies.reserve(files.size());
    std::map<std::pair<std::uint64_t, Ranges>, std::int64_t> numbers;
    std::map<std::uint64_t, Ranges> all; // by file system
    std::uint64_t taken = 0;
    std::uint64_t largest = 0;
    std::int64_t next = 0;
    for (const ProvenFile* file : files) {
        const std::uint64_t alone = takenAlone(*file);
        Copy copy{.number = next, .freedBytes = alone};
        const auto& blocks = file->blocks;
        if (blocks) copy.freedBytes = std::min(alone, blocks->ownBytes);
        if (blocks && hasKnownPlace(*file)) {
            Ranges ranges = blocks->ranges;
            const std::uint64_t bytes = platform::joinRanges(ranges);
            largest = std::max(largest, bytes);
            Ranges& others = all[blocks->fileSystem];
            others.insert(others.end(), ranges.begin(), ranges.end());
            const std::pair place(blocks->fileSystem, std::move(ranges));
            copy.number = numbers.try_emplace(place, next).first->second;
        } else {
            largest = std::max(largest, alone);
            taken = saturatingAdd(taken, alone);
        }
        if (copy.number == next) ++next;
        storage.copies.push_back(copy);
    }
    for (auto& [fileSystem, ranges] : all) {
        taken = saturatingAdd(taken, platform::joinRanges(ranges));
    }
    storage.extraBytes = taken - largest;
    return storage;
}

} // namespace tidyro
