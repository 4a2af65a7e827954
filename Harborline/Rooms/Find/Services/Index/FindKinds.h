#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

/// What an entry is on the disk.
enum class FindObjectType : std::uint8_t { other, file, directory, symlink };

/// What an entry is to a person, told from the extension of its name. The numbers are stored.
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

struct FindExtensions {
    /// By the extension in any case. A folder is `folder`, or what its extension makes of it when
    /// it is a package ("Mail.app" is `app`).
    [[nodiscard]] static FindCategory category(std::string_view name, bool isDirectory);
    /// Whether a folder of this name is one thing to people: an application or another bundle.
    [[nodiscard]] static bool isPackage(std::string_view name);
};

} // namespace tidyro
