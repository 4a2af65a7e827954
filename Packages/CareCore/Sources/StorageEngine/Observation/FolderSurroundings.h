#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/StringTable.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/Observation/FolderSigns.h"

namespace tidyro {

/// What a folder and the folders above it say of the items in it.
struct FolderSurroundings {
    /// There is a ".git", or what another version control keeps its history in, in the folder or in
    /// one above it. For a folder in the home only those
    /// below the home count: people keep their settings in a ".git" of the home itself, and with
    /// it everything they own would be a project.
    bool isInProjectRepository;
    /// The only repository around is one that a package manager fetched for itself, where it keeps
    /// such: nobody works in it, and it is fetched again.
    bool isInToolCheckout;
    /// The folder or one above it is a backup of Time Machine or of a phone, one made by a program
    /// that `FolderSigns` knows or by borg, or a snapshot of Timeshift or snapper. Its path says
    /// so, or the files that such a store is made of. For a folder in the home nobody looks above
    /// the home for those files.
    bool isInBackup;
    /// The folder or one above it is a database that is made of files.
    bool isInDatabase;
    /// The folder or one above it is the store of a git repository, which holds the history of a
    /// project and not its files. The home itself does not count.
    bool isInHistory;
    /// The folder or one above it is an environment of Python or conda. The home itself does not
    /// count.
    bool isInEnvironment;
    /// In the folder or in one above it lies the journal of a database, so files in it may be
    /// databases whatever their lengths.
    bool isNearJournal;

    bool operator==(const FolderSurroundings&) const = default;
};

/// Finds out the surroundings of folders and remembers them, so that a scan asks the disk once for
/// each folder. It does not notice later changes: whoever is about to touch something takes a new
/// one.
///
/// The folders above both the written path and the real path count. A folder that cannot be read
/// counts as all of these at once. Used by one thread.
class FolderSurroundingsFinder {
  public:
    explicit FolderSurroundingsFinder(const FileURL& home);

    /// The path is absolute and standardised.
    [[nodiscard]] FolderSurroundings surroundings(const std::string& folder);

    /// What a caller found that just opened a folder and listed it. It spares the next question
    /// doing the same.
    struct Listed {
        std::string folder;
        std::string real;  ///< its real path
        FolderSigns signs; ///< with all the names in it
    };
    void setListed(Listed listed) { listed_ = std::move(listed); }

  private:
    /// The surroundings by what is on the disk, for one path and not for where its links lead.
    [[nodiscard]] FolderSurroundings readUpwards(std::string_view folder);
    [[nodiscard]] FolderSurroundings readSigns(const std::string& folder);
    [[nodiscard]] bool isCheckout(std::string_view folder) const;

    std::string home_;
    std::string realHome_;
    /// Where tools keep checkouts, and how many folders further down one may begin.
    std::vector<std::pair<std::string, std::size_t>> checkouts_;
    StringMap<FolderSurroundings> answers_;
    StringMap<FolderSurroundings> read_; ///< of `readUpwards`
    Listed listed_;
    std::unique_ptr<platform::FolderLister> lister_; ///< made when a folder has to be listed
};

/// Whether a path says by its names alone that it lies in a backup.
[[nodiscard]] bool isBackupByName(std::string_view path);

} // namespace tidyro
