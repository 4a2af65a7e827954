#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// The folders of a home that are not one item among others: people and programs expect them to be
/// there. Paths below the home; whoever compares them takes no notice of case or composition
/// (`folded`), because the disks of some systems do not either.
struct HomeFolders {
    /// Where a system or a desktop puts people's own files ("Documents"). What lies in them may be
    /// chosen, they may not. A desktop may name further ones, in the person's language.
    [[nodiscard]] static std::span<const std::string_view> standardHomeFolders();

    /// Folders that hold the settings and stores of many programs, or of one that everybody needs
    /// (".config", ".ssh", "Library/Caches"): never chosen as a whole.
    [[nodiscard]] static std::span<const std::string_view> neverChosenHomeRoots();

    /// Folders that are kept in step with a cloud: what goes here goes everywhere.
    [[nodiscard]] static std::span<const std::string_view> cloudFolders();

    /// Those of this home, there or not, and the folders of it whose names an account or a person
    /// added to. Some of them are links. None when the home cannot be read: it may have any then.
    [[nodiscard]] static std::optional<std::vector<FileURL>> findCloudFolders(const FileURL& home);

    /// Whether a path below the home, folded, is or lies in a cloud folder. Accounts add to the
    /// names: "OneDrive - Company", "Dropbox (Personal)", "Company Dropbox", "Nextcloud2". What was
    /// set aside by a new name may be kept in step all the same: "Dropbox.old".
    [[nodiscard]] static bool isInCloudFolder(std::string_view foldedBelowHome);

    /// Folders of a home in which nothing is ever touched, neither by a rule nor because a person
    /// picked it: keys and passwords, cloud folders, mail and messages, and this program's own
    /// files.
    [[nodiscard]] static std::vector<FileURL> protectedFolders(const FileURL& home);
};

} // namespace tidyro
