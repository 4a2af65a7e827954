#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Base/StringTable.h"

namespace tidyro {

/// Resolves the links in paths. That asks the disk once for each component, so a scan that rates
/// many files keeps one resolver, which remembers folders. Whoever is about to touch a file uses a
/// fresh one. Used by one thread.
class FolderResolver {
  public:
    /// The path with its links resolved, standardised. The end of the path need not exist: that
    /// part stays as it is written. None when the system does not say.
    [[nodiscard]] static std::optional<std::string> resolved(const std::string& path);

    /// Whether the folder at `path` really lies at `expected`; both are standardised.
    [[nodiscard]] bool isReallyAt(std::string_view path, std::string_view expected);

    /// What a caller knows that just opened the folder without following a link.
    void setReal(std::string path, std::string real) {
        known_.insert_or_assign(std::move(path), std::move(real));
    }

  private:
    StringMap<std::optional<std::string>> known_;
};

} // namespace tidyro
