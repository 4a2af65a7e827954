#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidyro {

/// What the index of a git repository says of a folder: whether the project's history tracks
/// anything in it. The index itself is read, since no program of another may decide what goes, and
/// none need be installed.
///
/// Versions 2 to 4 are read, with hashes of either length and with sparse folders. Another version,
/// an index that is split over two files and any damage are not understood.
struct RepositoryIndex {
    /// Whether an index lists the folder or anything in it, by the folder's path below the
    /// repository's top. Names are compared as file systems do that ignore case. None when the
    /// bytes are not understood.
    [[nodiscard]] static std::optional<bool> isListed(std::string_view index,
                                                      std::string_view folder);

    enum class Tracking : std::uint8_t {
        untracked,
        tracked,
        unknown, ///< an index cannot be read, or another system keeps the history
    };
    /// Asks every repository that a folder lies in, by its real path: of one inside another the
    /// outer one may track the folder as well.
    [[nodiscard]] static Tracking tracking(const std::string& folder);
};

} // namespace tidyro
