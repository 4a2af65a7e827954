#pragma once

#include <optional>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// The folders of a home that are kept in step with a cloud, there or not, and those whose names an
/// account or a person added to. Some of them are links. None when the home cannot be read; it may
/// have any then.
[[nodiscard]] std::optional<std::vector<FileURL>> cloudFolders(const FileURL& home);

} // namespace tidyro
