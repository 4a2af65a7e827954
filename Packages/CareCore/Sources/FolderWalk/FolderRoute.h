#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// The mounts whose folders a walk reads.
struct WalkedMounts {
    std::uint64_t root = 0; ///< the volume of the walk's root
    /// Mounts below it that show what lies there anyway.
    std::set<std::uint64_t> ontoThemselves = {};
};

/// The names that lead from an open folder down to one that is to be read. They are gathered under
/// the walk's lock and followed without it. Each thread keeps one route, so that its strings keep
/// their room.
class FolderRoute {
  public:
    /// Begins with the folder that is to be read.
    void clear() { length_ = 0; }
    /// The next folder above.
    void addAbove(std::string_view name) {
        if (length_ == names_.size()) names_.emplace_back();
        names_[length_++].assign(name);
    }

    /// Where it led to.
    struct Arrival {
        /// Not open for an empty route, which ends where it began, and where there was an error.
        platform::FolderDescriptor folder;
        std::optional<platform::FolderFacts> facts; ///< of the folder, where it could be looked at
        bool isElsewhere = false;                   ///< it lies on none of the walk's mounts
        SystemError error{0};
    };
    /// Follows no link.
    [[nodiscard]] Arrival follow(const platform::FolderDescriptor& from,
                                 const WalkedMounts& mounts) const;

  private:
    std::vector<std::string> names_; ///< the first `length_` of them, from below
    std::size_t length_ = 0;
};

} // namespace tidyro
