#pragma once

#include <cstdint>
#include <optional>

#include "Base/Timestamp.h"
#include "Platform/Files/FileContents.h"
#include "Platform/Machine/SHA256.h"
#include "Rooms/Duplicates/Search/ListedFileOpener.h"

namespace tidyro {

/// A file whose contents were read from beginning to end.
struct ProvenFile {
    std::uint32_t file; ///< in the listing
    std::uint64_t bytes;
    std::uint64_t allocatedBytes;
    platform::ItemIdentity identity;
    platform::SHA256::Digest digest;
    Timestamp modified;
    std::optional<Timestamp> changed;
    std::optional<Timestamp> created;
    std::uint64_t linkCount;
    /// Absent where files share no blocks, and where nothing is told of them.
    std::optional<platform::FileBlocks> blocks;
};

/// Whether a later look shows the file as it was proven. Whoever writes to it meanwhile changes its
/// date of change, which cannot be set back.
[[nodiscard]] bool isUnchanged(const ProvenFile& file, const platform::FileMetadata& seen);

/// Proves a file by the digest of its whole contents. None when the file was written to meanwhile:
/// what was read may never have been its contents at any one time.
[[nodiscard]] std::optional<ProvenFile> prove(std::uint32_t file,
                                              const ListedFileOpener::Opened& opened,
                                              const platform::SHA256::Digest& digest);

} // namespace tidyro
