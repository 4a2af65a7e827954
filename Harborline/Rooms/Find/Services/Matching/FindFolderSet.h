#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The folders that a person means by a path, without regard to case and accents. An absolute path
/// is one folder; any other is every folder whose whole path ends with its components, "." the
/// root.
class FindFolderSet {
  public:
    FindFolderSet(const FindIndexStorage& storage, std::string_view path);

    /// Adds what lies in them, at any depth; everything, where the root does. One pass: folders
    /// have smaller numbers than what they hold.
    void addContents();

    [[nodiscard]] bool has(std::uint32_t entry) const { return folders_.has(entry); }

  private:
    [[nodiscard]] bool isMeant(std::uint32_t folder) const;

    const FindIndexStorage& storage_;
    bool isAbsolute_;
    std::vector<std::string> wanted_; ///< folded components
    std::vector<std::string> root_;   ///< those of the root
    FindEntrySet folders_;
};

} // namespace tidyro
