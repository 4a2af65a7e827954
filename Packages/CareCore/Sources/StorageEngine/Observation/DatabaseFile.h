#pragma once

#include <cstdint>
#include <expected>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Databases that no name tells of ("History", "places.kdbx"): SQLite's, by how their files begin
/// and by what lies beside them. Errors are those of reading; a file that cannot be read may be a
/// database.
struct DatabaseFile {
    /// Whether the regular file begins as a database does.
    [[nodiscard]] static std::expected<bool, SystemError>
    isDatabase(const platform::FolderDescriptor& folder, const char* name,
               const platform::FileMetadata& seen);

    /// Whether a journal lies beside the file: the database is in use, or was not closed properly,
    /// and what was written last is in the journal.
    [[nodiscard]] static std::expected<bool, SystemError>
    hasJournal(const platform::FolderDescriptor& folder, const char* name);

    /// Whether a file of this length is worth opening where there are very many of them. A database
    /// is made of pages whose lengths are powers of two from 512 on, so of ordinary files one in
    /// hundreds is opened. One that a crash cut short within a page has its journal beside it.
    [[nodiscard]] static constexpr bool hasDatabaseLength(std::uint64_t byteCount) {
        constexpr std::uint64_t smallestPage = 512;
        return byteCount > 0 && byteCount % smallestPage == 0;
    }
};

} // namespace tidyro
