#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// Where a file's first and last bytes lie on the disk. Two files whose places are the same share
/// their blocks.
struct FileExtent {
    std::uint64_t fileSystem; ///< the same for all its subvolumes
    /// Bytes from the beginning of what the file system calls its disk. Of a file with holes at its
    /// ends, the first and the last bytes that are there; -1 for one that is nothing but a hole.
    std::int64_t first;
    std::int64_t last;
    auto operator<=>(const FileExtent&) const = default;
};

/// A file held open for reading by a program that goes through a disk and must leave no trace: what
/// was in memory before stays there and what was not does not push it out, and the date of the last
/// use stays as it is wherever the system allows that.
///
///     OwnerHint owners;
///     const auto file = FileContents::open(folder, "name", owners);
///     const auto seen = file->metadata();      // of what was opened, whatever the name is by now
///     const auto count = file->read(0, buffer);
///
/// Opening follows no link and waits for nobody (a pipe, a device). Closed by its owner's lifetime.
class FileContents {
  public:
    /// Only a file's owner may read it without its date of use telling of that. The files of one
    /// folder are mostly one person's: this remembers, for the files of one folder, that they were
    /// not ours, so that not each is tried in vain.
    struct OwnerHint {
        bool isOurs = true;
    };
    [[nodiscard]] static std::expected<FileContents, SystemError>
    open(const FolderDescriptor& folder, const char* name, OwnerHint& owners);
    /// Links on the way to the last name are followed.
    [[nodiscard]] static std::expected<FileContents, SystemError> open(const std::string& path);

    FileContents(FileContents&& other) noexcept;
    FileContents& operator=(FileContents&& other) noexcept;
    ~FileContents();

    [[nodiscard]] std::expected<FileMetadata, SystemError> metadata() const;

    /// Only single places of the file are going to be read: nothing beyond what is asked for is
    /// worth fetching.
    void expectSingleReads();
    /// Fills the buffer from a place of the file on, as far as the file goes: fewer bytes than it
    /// has room for mean the end.
    [[nodiscard]] std::expected<std::size_t, SystemError> read(std::uint64_t offset,
                                                               std::span<std::byte> into);

    /// None for an empty file, and wherever the file system does not know the places of both ends
    /// exactly.
    [[nodiscard]] std::optional<FileExtent> extent(const FileMetadata& seen) const;

  private:
    explicit FileContents(int descriptor) noexcept : fd_(descriptor) {}

    int fd_;
    bool passesCache_ = true; ///< the system itself reads past its cache
};

/// Whether the files of a volume may share blocks with one another, which it is worth to ask for.
/// False only where it is known that they never do.
[[nodiscard]] bool mayShareBlocks(const FolderDescriptor& folder);

} // namespace tidyro::platform
