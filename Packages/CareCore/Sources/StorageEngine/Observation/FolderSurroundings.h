#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "Base/FileURL.h"

namespace tidyro {

/// What a folder's items belong to, by where the folder lies.
struct FolderSurroundings {
    /// There is a ".git" in the folder or in one above it, below the home; for a folder that is
    /// not in the home, in any above it. A ".git" of the home itself does not count: people keep
    /// their settings in one, and everything they own would be a project.
    bool isInProjectRepository;
    /// In a backup: of Time Machine, of a phone, made by restic, borg or duplicity, or a snapshot
    /// of Timeshift or snapper. Told by names, and by the files that such a store is made of, at
    /// the home, below it, and for a folder that is not in the home anywhere above it.
    bool isInBackup;
    /// The folder or one above it is a database that is made of files.
    bool isInDatabase;
    /// The folder or one above it, below the home, is a git repository itself: what lies in it is
    /// the history of a project and not its files.
    bool isInHistory;

    bool operator==(const FolderSurroundings&) const = default;
};

/// Finds out the surroundings of folders, and remembers them: a scan asks the disk once a folder.
/// What it remembers is as old as it is, so who is about to touch something takes a new one.
///
/// Both the path as it is written and the place where its links lead count. What cannot be read is
/// taken for all of it. Used by one thread.
class FolderSurroundingsFinder {
  public:
    explicit FolderSurroundingsFinder(const FileURL& home);

    /// The path is absolute and standardised.
    [[nodiscard]] FolderSurroundings surroundings(const std::string& folder);

  private:
    [[nodiscard]] FolderSurroundings byDisk(std::string_view folder);

    std::string home_;
    std::string realHome_;
    std::unordered_map<std::string, FolderSurroundings> answers_;
    std::unordered_map<std::string, FolderSurroundings> read_; ///< by what is on the disk alone
};

/// Whether a path says by its names alone that it lies in a backup.
[[nodiscard]] bool isBackupByName(std::string_view path);

} // namespace tidyro
