#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// Where the bytes of a file lie on the disk, and what of it no other file has. Two files whose
/// blocks are equal share all that they hold.
struct FileBlocks {
    struct Range {
        std::uint64_t begin; ///< bytes from the beginning of what the file system calls its disk
        std::uint64_t end;
        auto operator<=>(const Range&) const = default;
    };
    std::uint64_t fileSystem; ///< the same for all its subvolumes
    /// Ascending, and no range touches another. A hole has none, nor has what a file was given
    /// beyond its end. Of a compressed piece it is what the piece takes; where the file system does
    /// not tell that, the smallest block.
    std::vector<Range> ranges = {};
    /// Bytes that are free when this file alone is removed: those in ranges that no other file and
    /// no snapshot shares.
    std::uint64_t ownBytes = 0;
    /// False when some bytes lie where no range tells, such as those of a tiny file beside its
    /// name. Such a file cannot be compared with others.
    bool isWhole = true;

    auto operator<=>(const FileBlocks&) const = default;
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

    /// None when the file system does not tell. What was just written may have no place yet: then
    /// the file system is made to write it.
    [[nodiscard]] std::optional<FileBlocks> blocks(const FileMetadata& seen) const;

  private:
    explicit FileContents(int fd) noexcept : fd_(fd) {}
    [[nodiscard]] static std::expected<FileContents, SystemError> open(int folder, const char* name,
                                                                       OwnerHint& owner);

    int fd_;
    bool passesCache_ = true; ///< the system itself reads past its cache
};

/// Whether files on this folder's volume may share blocks, so that asking for their blocks is worth
/// a call. False only where they are known never to share any.
[[nodiscard]] bool mayShareBlocks(const FolderDescriptor& folder);

/// The bytes that are free once the last name of a regular file is gone, which was just seen under
/// its name. What others share, or may share where the file system does not tell, does not count.
[[nodiscard]] std::uint64_t ownByteCount(const FolderDescriptor& folder, const char* name,
                                         const FileMetadata& seen);

/// Sorts ranges and puts those together that touch or overlap. Returns how many bytes they hold.
std::uint64_t joinRanges(std::vector<FileBlocks::Range>& ranges);

} // namespace tidyro::platform
