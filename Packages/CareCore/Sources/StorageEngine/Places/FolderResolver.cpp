#include "StorageEngine/Places/FolderResolver.h"

#include <filesystem>
#include <system_error>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro {

std::optional<std::string> FolderResolver::resolved(const std::string& path) {
    if (auto real = platform::realPath(path)) return path::standardized(*real);
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, failed);
    if (failed) return std::nullopt;
    return path::standardized(real.string());
}

bool FolderResolver::isReallyAt(std::string_view path, std::string_view expected) {
    auto known = known_.find(path);
    if (known == known_.end()) {
        std::string folder(path);
        auto real = resolved(folder);
        known = known_.emplace(std::move(folder), std::move(real)).first;
    }
    return known->second == expected;
}

} // namespace tidyro
