#pragma once

#include <cstdint>
#include <expected>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Recognises SQLite databases whose names do not say so ("History", "places.kdbx"): by how their
/// files begin, and by the journals beside them. An error means that the file could not be read;
/// it may be a database then.
struct DatabaseFile {
    /// Whether the regular file begins as a database does.
    [[nodiscard]] static std::expected<bool, SystemError>
    isDatabase(const platform::FolderDescriptor& folder, const char* name,
               const platform::FileMetadata& seen);

    /// Whether a journal lies beside the file: the database is in use, or was not closed properly,
    /// and what was written last is in the journal.
    [[nodiscard]] static std::expected<bool, SystemError>
    hasJournal(const platform::FolderDescriptor& folder, const char* name);

    /// Whether a file of this length may be a database. Opening every file of a large folder would
    /// take too long, and this leaves one ordinary file in hundreds: a database is made of pages,
    /// whose lengths are powers of two from 512 on. A database that a crash cut short within a page
    /// has a journal beside it.
    [[nodiscard]] static constexpr bool hasDatabaseLength(std::uint64_t byteCount) {
        constexpr std::uint64_t smallestPage = 512;
        return byteCount > 0 && byteCount % smallestPage == 0;
    }
};

} // namespace tidyro
