#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "StorageEngine/Places/DesktopFolders.h"
#include "StorageEngine/Places/KeptFolders.h"
#include "StorageEngine/Places/RootPathIndex.h"
#include "StorageEngine/Places/SystemPlaces.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Where an item that a person picked may lie: what its path tells without a look at the disk.
///
/// Only what is written exactly as a chosen folder lies in it; where something must be kept, names
/// that differ in case or composition alone are the same. The disk is asked once, when this is
/// made, where the links in the folders that it knows of lead.
class DiskItemPlaces {
  public:
    struct Options {
        const FileURL& home;
        std::span<const FileURL> openedFolders; ///< that the person opened
        const DesktopFolders& desktop;          ///< they count as standard folders
        std::span<const FileURL> cloudFolders;
        const SafetyPolicyContext& context;
        std::span<const platform::Volume> volumes;
    };
    explicit DiskItemPlaces(const Options& options);

    /// Both take absolute, standardised paths; the real one has no link in it, except that the item
    /// itself may be one.
    [[nodiscard]] std::optional<DiskItemRefusal> refusal(std::string_view written) const;
    [[nodiscard]] std::optional<DiskItemRefusal> refusalOfReal(std::string_view real) const;

    [[nodiscard]] const std::string& realHome() const { return realHome_; }

    /// What is refused by its path, so that it is known by another path as well.
    [[nodiscard]] KeptFolders keptFolders(const Options& options) const;

    /// The names by which an item may be judged: those below the home, what stands above which is
    /// nobody's doing; for an item that is not in the home all of them.
    [[nodiscard]] std::string_view names(std::string_view path) const;

    /// Of the opened folders outside the home the innermost that a real path lies in; none when it
    /// lies in the home. An opened folder that holds the home is none: nobody opens the whole disk
    /// to vouch for everything on it.
    [[nodiscard]] const std::string* openedFolderOutsideHome(std::string_view real) const;

  private:
    /// Folders, folded.
    using Folders = std::vector<std::string>;

    void add(Folders& folders, std::string_view path) const;
    void addHomeFolders(const Options& options);
    void addProtected(const Options& options);
    void addTrash();
    [[nodiscard]] bool isInHome(std::string_view path) const;
    [[nodiscard]] bool isInTrashOfVolume(std::string_view path) const;
    [[nodiscard]] std::optional<DiskItemRefusal> byFolders(const std::string& folded) const;
    [[nodiscard]] std::optional<DiskItemRefusal> byNames(std::string_view path) const;
    [[nodiscard]] std::optional<DiskItemRefusal>
    refusalIn(std::string_view path, std::span<const std::string> chosen) const;

    std::string home_;
    std::string realHome_;
    std::vector<std::string> chosen_;     ///< the home and the opened folders, in both forms
    std::vector<std::string> realChosen_; ///< in their real form
    Folders homes_;
    Folders opened_;
    Folders standard_;
    Folders shared_;
    Folders trash_;
    Folders clouds_;
    Folders protected_;
    Folders active_;
    std::vector<std::string> untouched_; ///< the protected ones as they are written
    SystemPlaces system_;
    RootPathIndex inTrash_;
    RootPathIndex inClouds_;
    RootPathIndex inProtected_;
    RootPathIndex inActive_;
};

} // namespace tidyro
