#pragma once

#include <expected>

#include "Base/FileURL.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

namespace tidyro {

/// Keeps an index in two files: the one of FindIndexPersistence, and beside it one with the stamps
/// of the folders and a checksum of both. Any thread may call.
///
///     const auto saved = FindIndexPair::write(storage, metadata, url);
///     auto opened = FindIndexPair::read(url); // with the stamps
///
/// The two are opened together or not at all. A crash between the two, a file from elsewhere and
/// any changed byte show as an error, and the index is built anew.
struct FindIndexPair {
    using Error = FindIndexPersistenceError;

    /// The file beside the index's: "name-index-v1.extra" beside "name-index-v1.bin".
    [[nodiscard]] static FileURL extraURL(const FileURL& url);

    /// Replaces both files, the index first. Of several processes that write, one waits for the
    /// other, so both files are always of one writer in the end.
    [[nodiscard]] static std::expected<void, Error>
    write(const FindIndexStorage& storage, const FindIndexMetadata& metadata, const FileURL& url);

    /// The errors of FindIndexPersistence, and "extra" as the reason of an inconsistency when the
    /// second file is missing, damaged or of another index. Waits a little for a writer who is
    /// between the two files.
    [[nodiscard]] static std::expected<FindIndexPersistence::Opened, Error>
    read(const FileURL& url);
};

} // namespace tidyro
