#pragma once

#include <cstdint>
#include <string_view>

#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// What a folder is the top of, told by the names of what lies in it.
///
///     FolderSigns signs;
///     for (const std::string& name : names) signs.add(lowercased(name));
///     if (signs.isDatabase()) ...
class FolderSigns {
  public:
    void add(std::string_view loweredName);

    /// A backup of Time Machine or of a phone, one made by restic or duplicity, or a snapshot of
    /// Timeshift or snapper.
    [[nodiscard]] bool isBackup() const;
    /// Perhaps a borg repository, whose names are nothing special (`isBorgRepository`).
    [[nodiscard]] bool mayBeBorg() const;
    /// A database that is a folder of files, none of which says so by its own name.
    [[nodiscard]] bool isDatabase() const;
    /// A git repository itself, without a project's files around it.
    [[nodiscard]] bool isRepository() const;
    /// One that keeps the history of files that lie elsewhere.
    [[nodiscard]] bool isRepositoryOfOtherFolder() const;

  private:
    template <class... Wanted>
    [[nodiscard]] bool have(Wanted... wanted) const {
        return ((bits_ & static_cast<std::uint32_t>(wanted)) && ...);
    }

    std::uint32_t bits_ = 0;
};

/// Whether the folder's "config" is that of a borg repository, or cannot be read.
[[nodiscard]] bool isBorgRepository(const platform::FolderDescriptor& folder);

} // namespace tidyro
