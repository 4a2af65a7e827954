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
#include "StorageEngine/Places/KeptPlaces.h"
#include "StorageEngine/Places/RootPathIndex.h"
#include "StorageEngine/Places/SystemPlaces.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Judges an item that a person picked by its path alone, without a look at the disk.
///
/// An item lies in a chosen folder only when its path is written exactly so. Names that differ in
/// case or composition alone count as equal where something must be kept, which is the safe side in
/// both cases. The constructor asks the disk where the links in the folders that it knows lead.
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

    /// Both take absolute, standardised paths. In a real path no folder is a link; the item itself
    /// may be one.
    [[nodiscard]] std::optional<DiskItemRefusal> refusal(std::string_view written) const;
    [[nodiscard]] std::optional<DiskItemRefusal> refusalOfReal(std::string_view real) const;

    /// How many components the path of the store has that a path lies in, which only its owner may
    /// shrink; none when it lies in no store.
    [[nodiscard]] std::optional<std::size_t> storeDepth(std::string_view path) const;

    /// Whether a path lies among caches, in which programs keep histories of people's work as well.
    [[nodiscard]] bool isAmongCaches(std::string_view path) const;
    /// Whether a path is, or lies in, what people keep.
    [[nodiscard]] bool isPeoples(std::string_view path) const;

    [[nodiscard]] const std::string& realHome() const { return realHome_; }

    /// The folders that are refused by their paths, so that they are also known by their identity.
    [[nodiscard]] KeptFolders keptFolders(const Options& options) const;

    /// The part of a path by whose names an item may be judged. For an item in the home it begins
    /// below the home, since the person did not choose the names above; otherwise it is the whole
    /// path.
    [[nodiscard]] std::string_view names(std::string_view path) const;

    /// The innermost opened folder that a real path lies in; null when the path lies in the home.
    /// An opened folder that holds the home does not count: nobody opens the whole disk to vouch
    /// for everything on it.
    [[nodiscard]] const std::string* openedFolderOutsideHome(std::string_view real) const;

  private:
    /// Folded paths of folders.
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
    std::vector<std::string> chosen_;     ///< written and real paths of home and opened folders
    std::vector<std::string> realChosen_; ///< the real ones alone
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
    std::vector<KeptPlaces> keptPlaces_; ///< by the written and the real home
    RootPathIndex inTrash_;
    RootPathIndex inClouds_;
    RootPathIndex inProtected_;
    RootPathIndex inActive_;
};

} // namespace tidyro
