#include "StorageEngine/Observation/FileBeginning.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <span>

#include "Base/Fault.h"
#include "Platform/Files/FileContents.h"

namespace tidyro {

std::expected<bool, SystemError> fileBeginsWith(const platform::FolderDescriptor& folder,
                                                const char* name,
                                                const platform::FileMetadata& seen,
                                                std::string_view beginning) {
    std::array<std::byte, 64> bytes{};
    require(beginning.size() <= bytes.size(), "the beginning of a file is not as long");
    platform::FileContents::OwnerHint owners;
    auto file = platform::FileContents::open(folder, name, owners);
    if (!file) return std::unexpected(file.error());
    const auto opened = file->metadata();
    if (!opened) return std::unexpected(opened.error());
    if (opened->identity != seen.identity) return std::unexpected(SystemError{ESTALE});
    file->expectSingleReads();
    const auto count = file->read(0, std::span(bytes).first(beginning.size()));
    if (!count) return std::unexpected(count.error());
    return *count == beginning.size() &&
           std::memcmp(bytes.data(), beginning.data(), beginning.size()) == 0;
}

} // namespace tidyro
