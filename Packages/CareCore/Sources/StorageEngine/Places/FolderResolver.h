#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

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
    [[nodiscard]] bool doesLeadTo(std::string_view path, std::string_view expected);

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text);
        }
    };
    std::unordered_map<std::string, std::optional<std::string>, Hash, std::equal_to<>> known_;
};

} // namespace tidyro
