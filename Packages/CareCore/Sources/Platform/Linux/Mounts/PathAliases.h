#pragma once

#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Linux/Mounts/MountTable.h"

namespace tidyro::platform {

/// What a path of one table of mounts is called by another: a folder of the home that a container
/// has at "/data" is "/home/me/data" here. With one table for both, what a path is called as well,
/// because a folder or a whole file system is mounted at several places.
///
/// A mount shows a part of a file system. Where two mounts show the same part, or one shows a part
/// of the other's, the beginning of a path under the one can be exchanged for the place of the
/// other. These exchanges are worked out once, from the tables alone: nothing is looked up on the
/// disk, so a server that is gone holds nothing up, and a path that nothing is called otherwise
/// costs next to nothing.
///
/// It tells too many names rather than too few. A mount may lie hidden under a later one, and a
/// path does not say through which of them its file was opened: both are followed.
class PathAliases {
  public:
    PathAliases(std::span<const MountTableEntry> theirs, std::span<const MountTableEntry> ours);

    /// Whether nothing is called otherwise.
    [[nodiscard]] bool empty() const { return places_.empty(); }
    /// Appends what else the file is called that `path` names by their table.
    void appendOthers(std::string_view path, std::vector<std::string>& others) const;

  private:
    void add(std::string from, std::string to);

    std::map<std::string, std::vector<std::string>, std::less<>> places_; ///< by what they replace
};

} // namespace tidyro::platform
