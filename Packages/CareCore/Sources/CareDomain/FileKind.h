#pragma once

#include "Base/RawValues.h"

namespace tidyro {

/// What an item is on disk, links not followed: a link is `other`.
enum class FileKind { regularFile, directory, other };

constexpr RawValueTable<FileKind, 3> rawValues(RawValueTag<FileKind>) {
    return {{{{FileKind::regularFile, "regularFile"},
              {FileKind::directory, "directory"},
              {FileKind::other, "other"}}}};
}

} // namespace tidyro
