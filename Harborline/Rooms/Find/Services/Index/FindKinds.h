#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

/// What an entry is on the disk.
enum class FindObjectType : std::uint8_t { other, file, directory, symlink };

/// What an entry is to a person. The extension of its name decides. Index files store the numbers.
enum class FindCategory : std::uint8_t {
    other,
    folder,
    document,
    image,
    video,
    audio,
    archive,
    code,
    app,
};

constexpr RawValueTable<FindCategory, 9> rawValues(RawValueTag<FindCategory>) {
    using enum FindCategory;
    return {{{{other, "other"},
              {folder, "folder"},
              {document, "document"},
              {image, "image"},
              {video, "video"},
              {audio, "audio"},
              {archive, "archive"},
              {code, "code"},
              {app, "app"}}}};
}

/// What the extension of a name says.
struct FindExtensions {
    /// The category of an item. Upper and lower case are the same. A folder is `folder`, unless it
    /// is a package whose extension has a category: "Mail.app" is `app`.
    [[nodiscard]] static FindCategory category(std::string_view name, bool isDirectory);
    /// Whether a folder of this name is one thing to people: an application or another bundle.
    [[nodiscard]] static bool isPackage(std::string_view name);
};

/// The bits of an entry's `flags`. Index files store them.
namespace findflag {
constexpr std::uint8_t folder = 1;
constexpr std::uint8_t symlink = 2; ///< an entry with neither bit is a file or something else
constexpr std::uint8_t hidden = 4;  ///< itself, or in something hidden
constexpr std::uint8_t system = 8;  ///< a folder of the operating system at the top, or in one
/// A folder that could not be read or was left out. Its contents are not known, so it must not be
/// taken for empty.
constexpr std::uint8_t unread = 16;
constexpr std::uint8_t program = 16; ///< of what is no folder: a file that can be run
constexpr std::uint8_t deleted = 32;
constexpr std::uint8_t notASCII = 64; ///< a byte of its name is 0x80 or above
constexpr std::uint8_t package = 128; ///< a folder that people see as one thing
} // namespace findflag

/// The parts of an entry's `kind`: its category and two bits. Index files store them.
namespace findkind {
constexpr std::uint8_t categoryMask = 63;
constexpr std::uint8_t hiddenItself = 64; ///< not only because a folder above is hidden
constexpr std::uint8_t lastOfBlock = 128; ///< the last of siblings that were appended together
} // namespace findkind

} // namespace tidyro
