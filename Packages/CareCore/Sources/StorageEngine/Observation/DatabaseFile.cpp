#include "StorageEngine/Observation/DatabaseFile.h"

#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include "StorageEngine/Observation/FileBeginning.h"

namespace tidyro {

std::expected<bool, SystemError> DatabaseFile::isDatabase(const platform::FolderDescriptor& folder,
                                                          const char* name,
                                                          const platform::FileMetadata& seen) {
    constexpr std::string_view beginning{"SQLite format 3\0", 16};
    return fileBeginsWith(folder, name, seen, beginning);
}

std::expected<bool, SystemError> DatabaseFile::hasJournal(const platform::FolderDescriptor& folder,
                                                          const char* name) {
    constexpr std::array<const char*, 3> endings{"-wal", "-shm", "-journal"};
    for (const char* ending : endings) {
        const auto seen = platform::fileMetadata(folder, (std::string(name) + ending).c_str());
        if (seen) return true;
        // No file can have a name that is too long.
        if (seen.error().code != ENOENT && seen.error().code != ENAMETOOLONG) {
            return std::unexpected(seen.error());
        }
    }
    return false;
}

} // namespace tidyro
