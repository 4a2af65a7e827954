#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/SystemTexts.h"
#include "StorageEngine/AITools/AIToolLayout.h"
#include "StorageEngine/Places/BaseFolders.h"

namespace tidyro {

/// Why a folder is not taken for a tool's home.
enum class AIToolHomeRejection : std::uint8_t {
    missing,
    notADirectory,
    symbolicLink,
    notOwnedByYou,
    unsafeLocation,
    notRecognized,
    insideProject,
};

constexpr RawValueTable<AIToolHomeRejection, 7> rawValues(RawValueTag<AIToolHomeRejection>) {
    using enum AIToolHomeRejection;
    return {{{{missing, "missing"},
              {notADirectory, "notADirectory"},
              {symbolicLink, "symbolicLink"},
              {notOwnedByYou, "notOwnedByYou"},
              {unsafeLocation, "unsafeLocation"},
              {notRecognized, "notRecognized"},
              {insideProject, "insideProject"}}}};
}

/// What people are told, in the words of their system.
[[nodiscard]] std::string_view explanation(AIToolHomeRejection rejection);

struct AIToolHomeRejectionError {
    AIToolHomeRejection reason;

    bool operator==(const AIToolHomeRejectionError&) const = default;
};

/// How a home came to be looked at.
enum class AIToolHomeSource : std::uint8_t { conventional, environment, custom };

constexpr RawValueTable<AIToolHomeSource, 3> rawValues(RawValueTag<AIToolHomeSource>) {
    using enum AIToolHomeSource;
    return {{{{conventional, "conventional"}, {environment, "environment"}, {custom, "custom"}}}};
}

struct AIToolLocation;

/// A folder that was proved to be a tool's home. It is that very folder: when another one has taken
/// its name, `stillIdentified` says no, and whoever works on it must stop.
struct AIToolHome {
    using Source = AIToolHomeSource;

    AIToolID tool;
    FileURL url;
    std::uint64_t deviceID; ///< of the folder when it was validated, as is the inode
    std::uint64_t inode;
    Source source;
    FileURL userHome;

    [[nodiscard]] const AIToolLayout& layout() const { return AIToolLayouts::layout(tool); }
    [[nodiscard]] const std::string& layoutVersion() const { return layout().layoutVersion; }
    /// Asks the disk, without following a link.
    [[nodiscard]] bool stillIdentified() const;
    /// Where a path lies: in one of the layout's stores, which are asked first, or in the home.
    /// None outside both. Looks at the text alone.
    [[nodiscard]] std::optional<AIToolLocation> locate(const FileURL& at) const;
    /// The stores that are there as real folders, with their places among the layout's.
    [[nodiscard]] std::vector<std::pair<std::size_t, FileURL>> validExternalStores() const;

    static constexpr auto fields() {
        using Self = AIToolHome;
        return fieldList<Self>(field("tool", &Self::tool), field("url", &Self::url),
                               field("deviceID", &Self::deviceID), field("inode", &Self::inode),
                               field("source", &Self::source), field("userHome", &Self::userHome));
    }
    bool operator==(const AIToolHome&) const = default;
};

/// Where an entry sits.
struct AIToolLocation {
    struct Place {
        std::optional<std::size_t> storeIndex; ///< absent: in the home itself

        bool operator==(const Place&) const = default;
    };

    AIToolHome home;
    Place place;
    FileURL rootURL;                     ///< of the home or the store
    std::vector<std::string> components; ///< below the root; empty for the root itself

    [[nodiscard]] const AIToolLayout& layout() const { return home.layout(); }
    bool operator==(const AIToolLocation&) const = default;
};

struct AIToolHomeCandidate {
    AIToolID tool;
    FileURL url;
    AIToolHome::Source source;
    std::expected<AIToolHome, AIToolHomeRejectionError> result;
};

/// Finds the homes of the tools. Nothing is followed that is a link, and a folder counts only when
/// it is the person's own, lies in a sane place and holds what the tool writes.
///
///     const AIToolHomeDiscovery discovery{.userHome = home, .environment = environment};
///     for (const AIToolHomeCandidate& found : discovery.discover(allCases<AIToolID>())) {
///         if (found.result) audit(*found.result);
///     }
struct AIToolHomeDiscovery {
    FileURL userHome;
    std::map<std::string, std::string, std::less<>> environment = {}; ///< name to value
    std::map<AIToolID, std::vector<FileURL>> customHomes = {};        ///< added by the person
    BaseFolders bases = {}; ///< where the person's environment moved settings and data to

    /// Reads the environment of this process: which homes it names, and where it moved settings and
    /// data to. A variable counts that names an absolute path.
    [[nodiscard]] static AIToolHomeDiscovery ofThisPerson(FileURL userHome);

    /// One candidate for each place, in the order of the tools; accepted and rejected ones. A
    /// further conventional place is told of only when something is there.
    [[nodiscard]] std::vector<AIToolHomeCandidate> discover(std::span<const AIToolID> tools) const;
    [[nodiscard]] std::expected<AIToolHome, AIToolHomeRejectionError>
    validate(const FileURL& url, AIToolID tool, AIToolHome::Source source) const;

    /// Whether a folder may be a tool's home by its place alone: not the home or what holds it, no
    /// place of the system, none of the folders in which people keep everything.
    [[nodiscard]] bool isAcceptableLocation(const FileURL& url) const;
    /// Whether the folder or one above it, up to the user's home, is a repository.
    [[nodiscard]] bool isInsideRepository(const FileURL& url) const;
};

} // namespace tidyro
