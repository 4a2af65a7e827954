#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Platform/Volumes.h"
#include "StorageEngine/DiskItemRefusal.h"
#include "StorageEngine/RootPathIndex.h"
#include "StorageEngine/SafetyPolicyContext.h"

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
        /// What the person's desktop calls the folders of people's own files. They count as
        /// standard folders and not as protected places, among which a cleanup by rules counts
        /// them: here a person chose one very item.
        std::span<const FileURL> desktopFolders;
        const SafetyPolicyContext& context;
        /// What is mounted there is no protected place: a person chose the item by that very name,
        /// and the mount point itself is refused as one.
        std::span<const platform::Volume> volumes;
    };
    explicit DiskItemPlaces(const Options& options);

    /// Both take absolute, standardised paths; the real one has no link in it, except that the item
    /// itself may be one.
    [[nodiscard]] std::optional<DiskItemRefusal> refusal(std::string_view written) const;
    [[nodiscard]] std::optional<DiskItemRefusal> refusalOfReal(std::string_view real) const;

    [[nodiscard]] const std::string& home() const { return home_; }
    [[nodiscard]] const std::string& realHome() const { return realHome_; }

    /// The names by which an item may be judged: those below the home or else below the outermost
    /// opened folder. What stands above them is not the item's doing.
    [[nodiscard]] std::string_view below(std::string_view path) const;

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
    [[nodiscard]] bool isInHome(std::string_view path) const;
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
    Folders clouds_;
    Folders system_;
    Folders protected_;
    Folders active_;
    RootPathIndex inClouds_;
    RootPathIndex inSystem_;
    RootPathIndex inProtected_;
    RootPathIndex inActive_;
};

} // namespace tidyro
