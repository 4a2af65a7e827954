#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Rooms/Duplicates/Search/ProvenFile.h"

namespace tidyro {

/// How the copies of one set lie on the disk, and so what removing them frees.
///
///     const CopyStorage storage = CopyStorage::measure(files);
///     storage.copies[i].number, storage.copies[i].freedBytes, storage.extraBytes
///
/// It never promises more than a removal frees. The file system tells whether anybody shares a
/// block, and not who: what two copies of the set share may be in a snapshot or in a file that was
/// not searched as well. So shared blocks are promised to nobody, even where all who are known to
/// share them go.
struct CopyStorage {
    struct Copy {
        std::int64_t number;      ///< copies with the same number share all their blocks
        std::uint64_t freedBytes; ///< by removing this one alone
    };
    std::vector<Copy> copies; ///< in the order of the files
    /// What all copies take together beyond what the largest one takes.
    std::uint64_t extraBytes = 0;

    /// `files`: proven to have the same contents.
    [[nodiscard]] static CopyStorage measure(std::span<const ProvenFile* const> files);
};

} // namespace tidyro
