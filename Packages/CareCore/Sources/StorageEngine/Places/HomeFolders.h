#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// The folders of a home that people and programs expect to be there, so that they are not items
/// like others. The lists hold paths below the home. Whoever compares them folds both sides
/// (`folded`), because the disks of some systems ignore case and composition.
///
///     std::vector<std::string> kept;
///     for (const FileURL& folder : HomeFolders::protectedFolders(home)) {
///         kept.push_back(folder.path());
///     }
///     const bool isSynced = HomeFolders::isInCloudFolder(folded("Dropbox/letter.txt"));
///
/// Only `findCloudFolders` asks the disk. Any thread may ask.
struct HomeFolders {
    /// Where a system or a desktop puts people's own files ("Documents"). A person may choose what
    /// lies in these folders, but not the folders themselves. `DesktopFolders` knows further ones.
    [[nodiscard]] static std::span<const std::string_view> standardHomeFolders();

    /// Folders that hold the settings and stores of many programs, or of one that everybody needs
    /// (".config", ".ssh", "Library/Caches"): never chosen as a whole.
    [[nodiscard]] static std::span<const std::string_view> neverChosenHomeRoots();

    /// Folders that are kept in step with a cloud: what is removed here is removed everywhere.
    [[nodiscard]] static std::span<const std::string_view> cloudFolders();

    /// The cloud folders of a home, whether they exist or not, and those in it that an account or
    /// a person gave a longer name (`isInCloudFolder`). Some of them are links. None when the home
    /// cannot be read, since it may have any then.
    [[nodiscard]] static std::optional<std::vector<FileURL>> findCloudFolders(const FileURL& home);

    /// Whether a path below the home, folded, is or lies in a cloud folder. Accounts add to the
    /// names: "OneDrive - Company", "Dropbox (Personal)", "Company Dropbox", "Nextcloud2". A folder
    /// that somebody renamed may still be kept in step: "Dropbox.old".
    [[nodiscard]] static bool isInCloudFolder(std::string_view foldedBelowHome);

    /// Folders of a home in which nothing is ever touched, neither by a rule nor because a person
    /// picked it: keys and passwords, cloud folders, mail and messages, and this program's own
    /// files.
    [[nodiscard]] static std::vector<FileURL> protectedFolders(const FileURL& home);
};

} // namespace tidyro
