#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace tidyro {

/// What kind of data an item of the disk holds. Its extension says so, or a folder that it lies in.
/// The raw values are stored and do not change.
enum class ContentKind : std::uint8_t {
    other = 0,
    application = 1,
    developer = 2,
    image = 3,
    video = 4,
    audio = 5,
    document = 6,
    archive = 7,
    diskImage = 8,
    cachesAndLogs = 9,
    system = 10,
};

constexpr std::size_t contentKindCount = 11;

[[nodiscard]] std::span<const ContentKind> allContentKinds();
[[nodiscard]] std::optional<ContentKind> contentKind(std::uint8_t rawValue);

/// What people are shown: "Images", "Caches and logs".
[[nodiscard]] std::string_view title(ContentKind kind);

/// The kind of an extension in any case, without its full stop; `other` for an unknown one.
[[nodiscard]] ContentKind contentKindForExtension(std::string_view extension);

/// The kind of a file from the extension of its name.
[[nodiscard]] ContentKind contentKindForFile(std::string_view name);

/// The kind that a folder imposes on everything inside it, none when it imposes nothing. A parent's
/// context holds for its whole subtree, so it wins over the folder's own name. `isTopLevelSystem`
/// says that the folder lies at the top of the startup disk and is an `isSystemTopLevelFolder`.
[[nodiscard]] std::optional<ContentKind>
contentKindContext(std::string_view folderName, std::optional<ContentKind> parentContext,
                   bool isTopLevelSystem);

/// The kind that the folder at an absolute path imposes, with all folders above it considered.
[[nodiscard]] std::optional<ContentKind> contentKindContextOfPath(std::string_view path);

/// The names of the system's own folders at the top of the startup disk, compared as written.
[[nodiscard]] bool isSystemTopLevelFolder(std::string_view name);

/// Whether a folder of this name is a package: a folder that people see as one file. Compared
/// without case.
[[nodiscard]] bool isPackageFolder(std::string_view name);

} // namespace tidyro
