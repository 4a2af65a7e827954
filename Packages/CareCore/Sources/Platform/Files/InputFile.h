#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <span>
#include <string>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// A file that is read once from its beginning to its end, straight into the memory where the bytes
/// are to stay. Used by one thread.
///
///     auto file = InputFile::open(path);
///     if (!file) return std::unexpected(file.error());
///     while (*file->read(block) > 0) ...
///
/// It reads rather than maps: a mapped file that somebody cuts short ends the process, and the
/// bytes would have to be copied out at once all the same.
class InputFile {
  public:
    /// Follows links. EINVAL when it is no regular file; waits for nobody (a pipe, a device).
    [[nodiscard]] static std::expected<InputFile, SystemError> open(const std::string& path);
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&&) = delete;
    ~InputFile();

    /// The length of the file when it was opened.
    [[nodiscard]] std::uint64_t byteCount() const { return byteCount_; }
    /// The space that it took on the disk then: less than its length when it is compressed, and
    /// next to nothing when it is one large hole.
    [[nodiscard]] std::uint64_t bytesOnDisk() const { return bytesOnDisk_; }
    /// Fills a block with the next bytes. Fewer bytes than it has room for mean the end.
    [[nodiscard]] std::expected<std::size_t, SystemError> read(std::span<std::byte> into);

  private:
    explicit InputFile(int fd) : fd_(fd) {}

    int fd_;
    std::uint64_t byteCount_ = 0;
    std::uint64_t bytesOnDisk_ = 0;
};

} // namespace tidyro::platform
