#pragma once

#include <compare>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "StorageEngine/AITools/AIToolHome.h"
#include "StorageEngine/AITools/ToolActivityProbe.h"

namespace tidyro {

/// Which versions or builds of a tool lie in a folder, and which of them it uses.
///
///     const auto state = AIToolVersionState::forBuildFolder(location, activity);
///     if (state && state->isCurrent(location.components.front())) keep();
///
/// A version goes only when another one is proved to be in use. Where that cannot be found out (no
/// installed build can be read, it names no folder that is there, a launcher is missing, runs in a
/// circle or leads elsewhere), every version counts as current. The newest always does, and so does
/// one that a process has open.
struct AIToolVersionState {
    using Names = std::set<std::string, std::less<>>;

    Names versions; ///< names directly inside the folder, links and hidden ones left out
    Names current;

    [[nodiscard]] bool isCurrent(std::string_view name) const {
        // One that came after the look is newer than all of them.
        return current.contains(name) || !versions.contains(name);
    }

    /// Of a store of versions, by the link that starts the tool.
    [[nodiscard]] static AIToolVersionState compute(const FileURL& storeURL,
                                                    const FileURL& launcherURL,
                                                    const ToolActivitySnapshot& activity);
    /// Of a folder of builds, by the files of installed applications that name their build. A
    /// missing file is no application; one that is there has to be read. The newest build is the
    /// one that changed last, since the names are hashes.
    [[nodiscard]] static AIToolVersionState computeBuilds(const FileURL& rootURL,
                                                          std::span<const std::string> productFiles,
                                                          const ToolActivitySnapshot& activity);
    /// Of the root or store that a location lies in; none where that holds no versions.
    [[nodiscard]] static std::optional<AIToolVersionState>
    forBuildFolder(const AIToolLocation& at, const ToolActivitySnapshot& activity);

    /// Part by part as numbers: "1.9" comes before "1.10". Of two with the same numbers the one
    /// with more behind a "-" comes first, as "1.9-beta" before "1.9". What is no number comes
    /// before all that is one, and is compared byte by byte.
    [[nodiscard]] static std::strong_ordering compareVersions(std::string_view a,
                                                              std::string_view b);
};

} // namespace tidyro
