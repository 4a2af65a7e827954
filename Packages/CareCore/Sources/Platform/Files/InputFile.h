#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <span>
#include <string>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// A file read from its beginning to its end, straight into the memory where the bytes are to stay.
///
/// Reading was chosen over mapping: a mapped file that somebody cuts short ends the process, and
/// the bytes would have to be copied out at once all the same.
class InputFile {
  public:
    /// Links are followed. EINVAL when it is no regular file; waits for nobody (a pipe, a device).
    [[nodiscard]] static std::expected<InputFile, SystemError> open(const std::string& path);
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&&) = delete;
    ~InputFile();

    /// When it was opened.
    [[nodiscard]] std::uint64_t byteCount() const { return byteCount_; }
    /// What it took on the disk then: less than its bytes where it is compressed, next to nothing
    /// where it is one large hole.
    [[nodiscard]] std::uint64_t bytesOnDisk() const { return bytesOnDisk_; }
    /// Fills a block with the next bytes; fewer than it has room for mean the end.
    [[nodiscard]] std::expected<std::size_t, SystemError> read(std::span<std::byte> into);

  private:
    InputFile(int descriptor, std::uint64_t byteCount) : fd_(descriptor), byteCount_(byteCount) {}

    int fd_;
    std::uint64_t byteCount_;
    std::uint64_t bytesOnDisk_ = 0;
};

} // namespace tidyro::platform
