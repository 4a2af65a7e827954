#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Folders that must stay, told by what they are and not by their paths: where a folder is mounted
/// a second time it has another path and is the same folder. (Where the second mount begins further
/// down, inside such a folder, nothing on the disk tells what is above it.)
class KeptFolders {
  public:
    enum class Reason : std::uint8_t {
        home,
        protectedPlace,
        cloudFolder,
        systemPlace,
        openedFolder,
        standardFolder,
        sharedFolder,
        unreadable, ///< the disk does not say which folder it is
    };
    enum class Reach : std::uint8_t {
        itself,
        everythingInIt,
    };
    /// The folder at a path, or what its link leads to; one that is not there is passed over. Of
    /// two reasons for one folder the first that was added is told.
    void add(const std::string& path, Reason reason, Reach reach);

    /// Why the folder at a path without links has to stay: it is one of them by another path. None
    /// for one that has its own path, which tells the same.
    [[nodiscard]] std::optional<Reason> reason(const platform::ItemIdentity& folder,
                                               std::string_view path) const;
    /// The same for what lies in the folder at such a path. Each folder is asked of the disk once.
    [[nodiscard]] std::optional<Reason> reasonInside(std::string_view path);
    /// Why this folder has to stay, whatever its path is.
    [[nodiscard]] std::optional<Reason> reason(const platform::ItemIdentity& folder) const;

  private:
    struct Kept {
        std::string path; ///< without links
        Reason reason;
        Reach reach;
    };
    struct Hash {
        std::size_t operator()(const platform::ItemIdentity& key) const {
            return std::hash<std::uint64_t>{}(key.inode ^ (key.device << 32U));
        }
    };
    [[nodiscard]] const Kept* byAnotherPath(const platform::ItemIdentity& folder,
                                            std::string_view path) const;

    std::unordered_map<platform::ItemIdentity, Kept, Hash> folders_;
    std::unordered_map<std::string, std::optional<Reason>> known_;
};

} // namespace tidyro
