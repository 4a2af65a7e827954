#pragma once

#include <cstddef>
#include <expected>
#include <span>
#include <string>
#include <vector>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// Replaces a file that matters piece by piece, for what is too large to hold twice.
///
///     auto writer = DurableWriter::open(path, DurableWriter::Sibling::shared);
///     writer->append(bytes) ...
///     writer->commit()                 // or let it go: the old file stands, the sibling is gone
///
/// The new bytes stand in a sibling, mode 0600, until they are flushed and take the old file's
/// place; then the folder is flushed. Used by one thread.
class DurableWriter {
  public:
    enum class Sibling {
        unique, ///< a name that nobody else has: of several writers the last to end wins
        /// `path` and ".partial", so that one left by a crash is used up by the next. Whoever has
        /// it locks it; others wait, and give up with EWOULDBLOCK when it takes longer than
        /// `maxWait` seconds. Fails where the file system has no locks.
        shared,
    };
    static constexpr int maxWait = 10;

    [[nodiscard]] static std::expected<DurableWriter, SystemError> open(const std::string& path,
                                                                        Sibling sibling);
    DurableWriter(DurableWriter&& other) noexcept;
    DurableWriter& operator=(DurableWriter&&) = delete;
    ~DurableWriter();

    /// Small pieces are gathered, large ones written as they are.
    [[nodiscard]] std::expected<void, SystemError> append(std::span<const std::byte> bytes);
    /// Once, at the end. A failure leaves the old file, unless the very last flush failed: then the
    /// new one is in its place, but may not outlast a crash.
    [[nodiscard]] std::expected<void, SystemError> commit();

  private:
    DurableWriter(std::string path, std::string sibling, int descriptor);

    std::string path_;
    std::string sibling_;
    int fd_; ///< negative: there is no sibling (any more)
    std::vector<std::byte> gathered_;
};

} // namespace tidyro::platform
