#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The folders that a person means by a path; case and accents do not count. An absolute path means
/// one folder. Any other path means every folder whose own path ends with its components, and "."
/// means the root.
class FindFolderSet {
  public:
    FindFolderSet(const FindIndexStorage& storage, std::string_view path);

    /// Adds the entries that lie in these folders, at any depth; all entries when the root itself
    /// lies in one. One pass is enough, since a folder has a smaller number than what it holds.
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
