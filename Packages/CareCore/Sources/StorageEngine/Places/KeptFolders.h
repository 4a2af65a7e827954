#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Base/StringTable.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Folders that must stay, known by their identities. A folder that is mounted a second time has
/// another path there and is still the same folder, so comparing paths would let it go. A second
/// mount that begins inside such a folder is not recognised: nothing on the disk tells what lies
/// above it there. Used by one thread.
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
    /// Adds the folder at a path, or the one that its link leads to. Nothing is added where
    /// nothing lies. A folder that was added before keeps its first reason.
    void add(const std::string& path, Reason reason, Reach reach);

    /// Why the folder at a real path has to stay, when it is one of them and lies here a second
    /// time. None at its first place, which whoever compares paths knows.
    [[nodiscard]] std::optional<Reason> reason(const platform::ItemIdentity& folder,
                                               std::string_view path) const;
    /// The same for what lies in the folder at a real path. Asks the disk once for each folder and
    /// remembers the answer.
    [[nodiscard]] std::optional<Reason> reasonInside(std::string_view path);
    /// Why this folder has to stay, by whatever path it was reached.
    [[nodiscard]] std::optional<Reason> reason(const platform::ItemIdentity& folder) const;

  private:
    struct Kept {
        std::string path; ///< the real one
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
    StringMap<std::optional<Reason>> known_;
};

} // namespace tidyro
