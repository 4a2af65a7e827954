#pragma once

#include <cstdint>
#include <optional>

#include "Base/Timestamp.h"
#include "Platform/Files/FileContents.h"
#include "Platform/Machine/SHA256.h"
#include "Rooms/Duplicates/Search/ListedFileOpener.h"

namespace tidyro {

/// A file whose whole contents were read.
struct ProvenFile {
    std::uint32_t file; ///< in the listing
    std::uint64_t bytes;
    platform::ItemIdentity identity;
    platform::SHA256::Digest digest;
    Timestamp modified;
    std::optional<Timestamp> changed;
    std::optional<Timestamp> created;
    std::uint64_t linkCount;
    std::optional<platform::FileExtent> extent;
};

/// Whether a look at a file still shows what was proven. Its date of change cannot be set back, so
/// that nobody writes to it unseen.
[[nodiscard]] bool isUnchanged(const ProvenFile& file, const platform::FileMetadata& seen);

/// The proof of a file whose contents were read from beginning to end and have this digest. None
/// for one that was written to meanwhile: its contents are such as nobody has seen.
[[nodiscard]] std::optional<ProvenFile> proven(std::uint32_t file,
                                               const ListedFileOpener::Opened& opened,
                                               const platform::SHA256::Digest& digest);

} // namespace tidyro
