#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

/// The folders below the home in which programs of Linux keep caches, settings and data. Tables
/// name them as most homes have them (".cache/pip"); a person's environment may move them.
///
///     const BaseFolders bases = BaseFolders::find(home);
///     const FileURL pip = home.appendingFolder(bases.moved(".cache/pip"));
///
/// A folder that the environment names is used only when it lies below the home and when it neither
/// is nor holds another base, a standard folder of the home or a project: a rule for ".cache" must
/// never reach what people made. Otherwise the usual place stays.
struct BaseFolders {
    std::string caches = ".cache";
    std::string settings = ".config";
    std::string data = ".local/share";

    /// Asks the environment, and the disk about the folders that it names.
    [[nodiscard]] static BaseFolders find(const FileURL& home);
    [[nodiscard]] static BaseFolders chosen(const FileURL& home,
                                            const platform::MovedFolders& moved);
    /// The same for what is protected: that moves with any folder below the home. What people keep
    /// is kept even where no rule follows, as among settings that are a project themselves.
    [[nodiscard]] static BaseFolders ofKeptPlaces(const FileURL& home);

    [[nodiscard]] bool areMoved() const { return *this != BaseFolders{}; }

    /// Where a place below the home lies that a table names.
    [[nodiscard]] std::string moved(std::string_view belowHome) const;
    /// How a table names a place below the home: the opposite of `moved`.
    [[nodiscard]] std::string named(std::string_view belowHome) const;

    bool operator==(const BaseFolders&) const = default;
};

} // namespace tidyro
