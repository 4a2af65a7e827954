#pragma once

#include <span>
#include <string_view>

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

    /// Whether a path below the home, folded, is or lies in a cloud folder. Accounts add to the
    /// names: "OneDrive - Company", "Dropbox (Personal)", "Company Dropbox", "Nextcloud2". What was
    /// set aside by a new name may be kept in step all the same: "Dropbox.old".
    [[nodiscard]] static bool isInCloudFolder(std::string_view foldedBelowHome);
};

} // namespace tidyro
