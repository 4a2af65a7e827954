#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/FindKinds.h"

namespace tidyro {

/// What one folder holds, as parallel arrays; "." and ".." left out, in the order in which the file
/// system tells it.
struct FindDirectoryListing {
    GrowingArray<char> names;           ///< without separators
    GrowingArray<std::uint32_t> starts; ///< where each name begins, and one more: where they end
    GrowingArray<FindObjectType> types;
    GrowingArray<std::uint64_t> sizes;    ///< bytes; of folders nothing is known
    GrowingArray<std::uint32_t> mtimes;   ///< whole seconds since 1970
    GrowingArray<std::uint32_t> bsdFlags; ///< the system's flags of the file; 0x8000 is hidden
    GrowingArray<bool> mountPoints;       ///< something else is mounted there

    /// The flag of a file that its owner hid, whatever its name.
    static constexpr std::uint32_t hiddenFlag = 0x8000;

    [[nodiscard]] std::size_t count() const { return types.size(); }
    [[nodiscard]] std::string_view name(std::size_t entry) const {
        return {names.data() + starts[entry], starts[entry + 1] - starts[entry]};
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
    /// Keeps its room for the next folder.
    void clear();
};

} // namespace tidyro
