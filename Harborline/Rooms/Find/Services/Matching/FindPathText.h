#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindSubject.h"

namespace tidyro {

/// Writes the paths of entries, one at a time. Entries of one folder stand side by side, so that
/// the path of the folder is written once for all of them.
class FindPathText {
  public:
    explicit FindPathText(const FindIndexStorage& storage) : storage_(storage) {}

    /// Good until the next call.
    [[nodiscard]] FindSubject subject(std::uint32_t entry);

  private:
    void writeFolder(std::uint32_t folder);
    void append(std::uint32_t entry);

    const FindIndexStorage& storage_;
    std::string own_;
    std::string folded_;
    std::uint32_t folder_ = FindIndexStorage::none; ///< whose path they begin with
    std::size_t ownFolder_ = 0;
    std::size_t foldedFolder_ = 0;
    bool folderIsASCII_ = true;
    std::vector<std::uint32_t> above_; ///< kept for its room
};

} // namespace tidyro
