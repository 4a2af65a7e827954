#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/StringTable.h"
#include "Base/SystemTexts.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/Places/RootPathIndex.h"

namespace tidyro {

/// What lies among caches and settings of a home and is never removed file by file, whichever rule
/// covers it: people's own data, histories, and stores that only their owner may shrink. Beside the
/// folders of `HomeFolders::protectedFolders` these are places that need a pattern, a name or a
/// sentence of their own.
///
///     const KeptPlaces kept(home);
///     const auto found = kept.find(LoweredPath("/home/ada/.cache/uv/wheels/x").text());
///     if (found) return found->reason; // it names uv's own command
///
/// The constructor asks the environment where the base folders and the stores lie. Any thread may
/// ask.
class KeptPlaces {
  public:
    explicit KeptPlaces(const FileURL& home, OperatingSystem system = platform::operatingSystem());

    struct Found {
        std::string_view reason; ///< a sentence for people, which lasts
        /// How many components the store's own path has; none for what is no store. A rule that is
        /// rooted in a store names just what may go.
        std::optional<std::size_t> storeDepth = std::nullopt;
    };
    /// The path is absolute and lower-cased.
    [[nodiscard]] std::optional<Found> find(std::string_view loweredPath) const;

    /// Whether nothing but its own name can keep an item directly in this folder: no place is one,
    /// holds one or may begin with one. Asked once for a folder, it lets `findByName` take the
    /// place of `find` for the items in it.
    [[nodiscard]] bool isDecidedByNamesIn(std::string_view loweredFolder) const;
    [[nodiscard]] std::optional<Found> findByName(std::string_view loweredPath) const;

    enum class Touch : std::uint8_t { nothing, isIn, holds };
    /// Whether a picked item lies in people's data, or would take some with it. A person may well
    /// pick a store.
    [[nodiscard]] Touch touch(std::string_view loweredPath) const;

    /// Whether a path lies among the caches of programs, of flatpaks or of snaps: there the name of
    /// an item is not enough to tell what it is.
    [[nodiscard]] bool isAmongCaches(std::string_view loweredPath) const;

    /// Whether an item of this name is kept wherever it lies, so that a folder which holds one
    /// stays as well.
    [[nodiscard]] static bool isKeptName(std::string_view loweredName);

    /// Whether a path lies where applications of Linux keep their own data (".config",
    /// ".local/share"). What no rule covers there is protected, whatever it is called.
    [[nodiscard]] bool isApplicationSupport(std::string_view loweredPath) const;

  private:
    struct Place {
        std::string pattern; ///< below the home, lower-cased
        std::size_t depth;   ///< how many components the pattern has
        std::string_view reason;
        bool isStore;
        bool isExceptCaches;
    };
    /// A store that lies anywhere, or where the environment puts it.
    struct Store {
        std::string path; ///< lower-cased
        std::string_view reason;
    };
    void addStores(const FileURL& home);
    [[nodiscard]] bool isInCaches(std::string_view loweredPath) const;
    [[nodiscard]] const Place* placeOf(std::string_view loweredBelow) const;
    /// Why an item of this name is kept wherever it lies; empty when it is not.
    [[nodiscard]] static std::string_view reasonByName(std::string_view loweredName, bool isCached);

    std::string homePrefix_;
    std::size_t homeDepth_;
    StringMap<std::vector<Place>> places_; ///< by how their patterns begin
    std::vector<std::string> folders_;     ///< people's, absolute
    RootPathIndex inFolders_;              ///< those in the home, below it
    bool isHomeInFolders_ = false;
    std::vector<Store> stores_;
    std::vector<std::string> cachePrefixes_;
    std::vector<std::string> supportPrefixes_;
};

} // namespace tidyro
