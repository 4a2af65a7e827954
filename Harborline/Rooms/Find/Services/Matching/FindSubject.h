#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The text of an entry that a condition looks at: its name, or its path. A path is the path below
/// the root with a "/" before each component.
struct FindSubject {
    std::string_view own; ///< its bytes
    std::string_view folded;
    bool isASCII; ///< then both have the same letters in the same places
};

/// Makes the subjects of the entries of one index. Entries of one folder stand side by side, so the
/// path of the folder is written once for all of them. One thread uses it.
class FindSubjects {
  public:
    explicit FindSubjects(const FindIndexStorage& storage) : storage_(storage) {}

    [[nodiscard]] FindSubject name(std::uint32_t entry) const {
        return {.own = storage_.name(entry),
                .folded = storage_.foldedName(entry),
                .isASCII = !storage_.is(entry, findflag::notASCII)};
    }
    /// Its texts last until the next call.
    [[nodiscard]] FindSubject path(std::uint32_t entry);

  private:
    void writeFolder(std::uint32_t folder);
    void append(std::uint32_t entry);

    const FindIndexStorage& storage_;
    std::string own_;
    std::string folded_;
    std::uint32_t folder_ = FindIndexStorage::none; ///< whose path they begin with
    std::size_t ownFolder_ = 0;
    std::size_t foldedFolder_ = 0;
    bool isFolderASCII_ = true;
    std::vector<std::uint32_t> above_; ///< kept for its room
};

} // namespace tidyro
