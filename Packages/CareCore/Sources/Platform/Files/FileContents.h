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

/// Where a file's first and last bytes lie on the disk. Two files with equal extents share their
/// blocks.
struct FileExtent {
    std::uint64_t fileSystem; ///< the same for all its subvolumes
    /// Bytes from the beginning of what the file system calls its disk. A file may begin or end
    /// with a hole: then these are the first and the last bytes that are there. -1 when the whole
    /// file is a hole.
    std::int64_t first;
    std::int64_t last;
    auto operator<=>(const FileExtent&) const = default;
};

/// A file held open for reading by a program that goes through a whole disk and must leave no
/// trace. What the system keeps in memory stays there: what is read here does not push it out. The
/// date of the last use stays as it is wherever the system allows that.
///
///     FileContents::OwnerHint owner;
///     auto file = FileContents::open(folder, "name", owner);
///     if (!file) return std::unexpected(file.error());
///     const auto seen = file->metadata();
///     const auto count = file->read(0, buffer);
///
/// Opening follows no link and waits for nobody (a pipe, a device). The file is closed when its
/// owner goes. Used by one thread at a time.
class FileContents {
  public:
    /// Remembers whether this person owns the files of one folder. Only an owner may read a file
    /// without changing its date of use, and one folder's files mostly have one owner: after the
    /// first refusal the others are not tried in vain. Start with a new one in each folder.
    struct OwnerHint {
        bool isUs = true;
    };
    [[nodiscard]] static std::expected<FileContents, SystemError>
    open(const FolderDescriptor& folder, const char* name, OwnerHint& owner);
    /// Links on the way to the last name are followed.
    [[nodiscard]] static std::expected<FileContents, SystemError> open(const std::string& path);

    FileContents(FileContents&& other) noexcept;
    FileContents& operator=(FileContents&& other) noexcept;
    ~FileContents();

    /// Of the open file, whatever its name leads to by now.
    [[nodiscard]] std::expected<FileMetadata, SystemError> metadata() const;

    /// Tells the system that single pieces of the file are going to be read, so that it fetches
    /// nothing beyond them.
    void expectSingleReads();
    /// Fills the buffer with the bytes from `offset` on. Fewer bytes than it has room for mean the
    /// end of the file.
    [[nodiscard]] std::expected<std::size_t, SystemError> read(std::uint64_t offset,
                                                               std::span<std::byte> into);

    /// None for an empty file, and when the file system does not know exactly where both ends are.
    [[nodiscard]] std::optional<FileExtent> extent(const FileMetadata& seen) const;

  private:
    explicit FileContents(int fd) noexcept : fd_(fd) {}
    [[nodiscard]] static std::expected<FileContents, SystemError> open(int folder, const char* name,
                                                                       OwnerHint& owner);

    int fd_;
    bool passesCache_ = true; ///< the system itself reads past its cache
};

/// Whether files on this folder's volume may share blocks, so that asking for their extents is
/// worth a call. False only where they are known never to share any.
[[nodiscard]] bool mayShareBlocks(const FolderDescriptor& folder);

} // namespace tidyro::platform
