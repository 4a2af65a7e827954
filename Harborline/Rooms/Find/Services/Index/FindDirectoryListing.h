#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/Index/FindKinds.h"

namespace tidyro {

/// What one folder holds, as parallel arrays, in the order in which the file system lists it. "."
/// and ".." are left out.
///
///     FindDirectoryListing listing;
///     listing.append({.name = "notes.txt", .type = FindObjectType::file, .size = 120});
struct FindDirectoryListing {
    GrowingArray<char> names;           ///< without separators
    GrowingArray<std::uint32_t> starts; ///< where each name begins, and where the last one ends
    GrowingArray<FindObjectType> types;
    GrowingArray<std::uint64_t> sizes;  ///< bytes; those of folders mean nothing
    GrowingArray<std::uint32_t> mtimes; ///< whole seconds since 1970
    /// `hiddenFlag`, `programFlag` and FindDirectoryReader's `datalessFlag`, no others. The bits of
    /// the first and the last are those of the file flags of macOS.
    GrowingArray<std::uint32_t> bsdFlags;
    GrowingArray<bool> mountPoints; ///< something else is mounted there

    /// The file can be run by somebody.
    static constexpr std::uint32_t programFlag = 0x00000001;
    /// The owner hid the file. A reader may set it for a name that begins with a dot as well.
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
    /// The name in it points into the listing.
    [[nodiscard]] Entry entry(std::size_t i) const {
        return {.name = name(i),
                .type = types[i],
                .size = sizes[i],
                .mtime = mtimes[i],
                .bsdFlags = bsdFlags[i],
                .isMountPoint = mountPoints[i]};
    }
    /// Empties the listing and keeps its memory for the next folder.
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
