#pragma once

#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// Folders of a home in which nothing is ever touched, neither by a rule nor because a person
/// picked it: keys and passwords, what a cloud keeps in step elsewhere, mail and messages, and this
/// program's own files.
[[nodiscard]] std::vector<FileURL> protectedFolders(const FileURL& home);

} // namespace tidyro
