#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/StringTable.h"

namespace tidyro {

/// Where paths really lead. Resolving asks the disk once a component, so a scan that rates many
/// files asks through one of these, which remembers folders; whoever is about to touch a file uses
/// a fresh one. Used by one thread.
class FolderResolver {
  public:
    /// The path with the links in it resolved, standardised; the part that does not exist stays as
    /// it is written. None when the system does not say.
    [[nodiscard]] static std::optional<std::string> resolved(const std::string& path);

    /// Whether the folder at `path` really lies at `expected`; both are standardised.
    [[nodiscard]] bool leadsTo(std::string_view path, std::string_view expected);

  private:
    StringMap<std::optional<std::string>> known_;
};

} // namespace tidyro
