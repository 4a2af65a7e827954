#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/Index/FindKinds.h"

namespace tidyro {

/// What one folder holds, as parallel arrays; "." and ".." left out, in the order in which the file
/// system tells it.
struct FindDirectoryListing {
    GrowingArray<char> names;           ///< without separators
    GrowingArray<std::uint32_t> starts; ///< where each name begins, and where the last one ends
    GrowingArray<FindObjectType> types;
    GrowingArray<std::uint64_t> sizes;  ///< bytes; those of folders mean nothing
    GrowingArray<std::uint32_t> mtimes; ///< whole seconds since 1970
    /// `hiddenFlag` and FindDirectoryReader's `datalessFlag`, by their bits in the flags of a file
    /// on macOS; no others are kept.
    GrowingArray<std::uint32_t> bsdFlags;
    GrowingArray<bool> mountPoints; ///< something else is mounted there

    /// The flag of a file that its owner hid. A reader sets it for a name with a dot as well.
    static constexpr std::uint32_t hiddenFlag = 0x8000;

    [[nodiscard]] std::size_t count() const { return types.size(); }
    [[nodiscard]] std::string_view name(std::size_t i) const {
        return {names.data() + starts[i], starts[i + 1] - starts[i]};
    }
    struct Entry {
        std::string_view name;
        FindObjectType type;
        std::uint64_t size = 0;
        std::uint32_t mtime = 0;
        std::uint32_t bsdFlags = 0;
        bool isMountPoint = false;
    };
    void append(const Entry& entry);
    /// Its name lasts until the listing changes.
    [[nodiscard]] Entry entry(std::size_t i) const {
        return {.name = name(i),
                .type = types[i],
                .size = sizes[i],
                .mtime = mtimes[i],
                .bsdFlags = bsdFlags[i],
                .isMountPoint = mountPoints[i]};
    }
    /// Keeps its room for the next folder.
    void clear();
};

inline void FindDirectoryListing::append(const Entry& entry) {
    if (starts.empty()) starts.push(0);
    names.append(entry.name);
    starts.push(static_cast<std::uint32_t>(names.size()));
    types.push(entry.type);
    sizes.push(entry.size);
    mtimes.push(entry.mtime);
    bsdFlags.push(entry.bsdFlags);
    mountPoints.push(entry.isMountPoint);
}

inline void FindDirectoryListing::clear() {
    names.clear();
    starts.clear();
    types.clear();
    sizes.clear();
    mtimes.clear();
    bsdFlags.clear();
    mountPoints.clear();
}

} // namespace tidyro
