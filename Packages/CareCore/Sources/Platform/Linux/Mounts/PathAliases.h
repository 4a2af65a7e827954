#pragma once

#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Linux/Mounts/MountTable.h"

namespace tidyro::platform {

/// Translates paths from one table of mounts to another. When a container has a folder of the home
/// at "/data", its "/data" is "/home/me/data" here. With the same table on both sides it finds the
/// other paths of a file whose folder or file system is mounted at several places.
///
///     const PathAliases aliases(theirs, ours);
///     aliases.appendOthers("/data/file", others);     // "/home/me/data/file"
///
/// A mount shows a part of a file system. Where two mounts show the same part, or one shows a part
/// of the other's, the beginning of a path under the one can be exchanged for the mount point of
/// the other. These exchanges are worked out once, from the tables alone. Nothing is looked up on
/// the disk, so a server that is gone holds nothing up. A path without aliases costs next to
/// nothing.
///
/// It gives too many paths rather than too few. A mount may lie hidden under a later one, and a
/// path does not say through which of the two its file was opened: both are followed.
class PathAliases {
  public:
    PathAliases(std::span<const MountTableEntry> theirs, std::span<const MountTableEntry> ours);

    /// Whether no path has an alias.
    [[nodiscard]] bool empty() const { return mountPoints_.empty(); }
    /// Appends the paths that our table gives to the file that is at `path` by theirs.
    void appendOthers(std::string_view path, std::vector<std::string>& others) const;

  private:
    void add(std::string from, std::string to);

    std::map<std::string, std::vector<std::string>, std::less<>>
        mountPoints_; ///< by what they replace
};

} // namespace tidyro::platform
