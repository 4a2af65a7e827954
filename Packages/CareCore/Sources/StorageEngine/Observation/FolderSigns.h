#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Recognises the top of a backup, of a database, of a tree under version control or of an
/// environment by the names in the folder. Add every name first, then ask.
///
///     FolderSigns signs;
///     for (const std::string& name : names) signs.add(lowercased(name));
///     if (signs.isDatabase()) ...
class FolderSigns {
  public:
    /// Some names count only for a file or only for a folder. An item of unknown kind may be both.
    void add(std::string_view loweredName, std::optional<platform::ItemKind> kind = std::nullopt);
    /// The same for an entry of a folder that is listed.
    void add(const platform::FolderEntry& entry);

    /// A backup of Time Machine or of a phone, one made by restic, duplicity, Kopia, rdiff-backup,
    /// Duplicacy, Duplicati, rsnapshot or Back In Time, or a snapshot of Timeshift or snapper.
    [[nodiscard]] bool isBackup() const;
    /// Perhaps a borg repository. Its names are nothing special, so `isBorgRepository` has to look
    /// into the folder.
    [[nodiscard]] bool mayBeBorg() const;
    /// A database that is made of several files, whose own names do not say so.
    [[nodiscard]] bool isDatabase() const;
    /// Perhaps a database of one file lies here: the journal of one does.
    [[nodiscard]] bool hasJournal() const;
    /// An environment of Python or conda, whose files are of no use without each other.
    [[nodiscard]] bool isEnvironment() const;
    /// The top of a tree under version control, of git or another program.
    [[nodiscard]] bool isWorkTree() const;
    /// The store of a git repository, such as a ".git": its files are the history of a project.
    [[nodiscard]] bool isRepository() const;
    /// Such a store that has an index or worktrees: the project's own files lie elsewhere.
    [[nodiscard]] bool isRepositoryOfOtherFolder() const;

  private:
    template <class... Wanted>
    [[nodiscard]] bool hasAll(Wanted... wanted) const {
        return ((bits_ & static_cast<std::uint32_t>(wanted)) && ...);
    }

    std::uint32_t bits_ = 0;
};

/// Whether version control keeps its history in an item of this name (".git", ".hg").
[[nodiscard]] bool isHistoryName(std::string_view loweredName);

/// Whether the folder's "config" is that of a borg repository, or cannot be read.
[[nodiscard]] bool isBorgRepository(const platform::FolderDescriptor& folder);

} // namespace tidyro
