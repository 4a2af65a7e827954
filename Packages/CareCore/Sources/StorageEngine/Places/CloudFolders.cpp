#include "StorageEngine/Places/CloudFolders.h"

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "Base/UnicodeText.h"
#include "StorageEngine/Places/HomeFolders.h"

namespace tidyro {

std::optional<std::vector<FileURL>> cloudFolders(const FileURL& home) {
    std::vector<FileURL> folders;
    for (const std::string_view name : HomeFolders::cloudFolders()) {
        folders.push_back(home.appendingFolder(name));
    }
    std::error_code failed;
    for (std::filesystem::directory_iterator at(home.path(), failed), end; !failed && at != end;
         at.increment(failed)) {
        const std::string name = at->path().filename().string();
        if (HomeFolders::isInCloudFolder(folded(name))) {
            folders.push_back(home.appendingFolder(name));
        }
    }
    if (failed && failed.value() != ENOENT) return std::nullopt;
    return folders;
}

} // namespace tidyro
