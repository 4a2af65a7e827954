#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "Base/SystemError.h"
#include "Platform/Files/ChangeGate.h"

namespace tidyro::platform {

/// A log: a file that only grows, and whose owner decides when it is flushed. Used by one thread.
///
///     auto log = AppendFile::open(folder + "/log");
///     log->append("first line\n") ...
///     log->flush()
///
/// Making it does not flush its folder, so its name may not outlast a crash until that was done.
class AppendFile {
  public:
    /// Makes the file with mode 0600 when it is missing. A link is not followed (ELOOP), and
    /// anything but a regular file is refused (EINVAL). The gate must outlive the file.
    [[nodiscard]] static std::expected<AppendFile, SystemError>
    open(const std::string& path, ChangeGate& gate = ChangeGate::open());
    AppendFile(AppendFile&& other) noexcept;
    AppendFile& operator=(AppendFile&&) = delete;
    ~AppendFile();

    [[nodiscard]] std::uint64_t byteCount() const { return byteCount_; }
    /// Whether the file is empty or ends with a line break. When it does not, a write was torn.
    [[nodiscard]] bool endsWithLineBreak() const { return endsWithLineBreak_; }

    /// Writes all bytes, in one call as far as the system takes them so. When it fails, what
    /// arrived of them is cut off again; where not even that succeeds, the file ends with a torn
    /// write.
    [[nodiscard]] std::expected<void, SystemError> append(std::string_view bytes);
    /// Brings everything so far to the medium. A failure may have dropped what it could not write,
    /// so another try proves nothing.
    [[nodiscard]] std::expected<void, SystemError> flush();

  private:
    AppendFile(int fd, ChangeGate& gate) : fd_(fd), gate_(&gate) {}

    int fd_;
    ChangeGate* gate_;
    std::uint64_t byteCount_ = 0;
    bool endsWithLineBreak_ = true;
};

/// Removes a file and flushes its folder. One that is missing counts as removed.
[[nodiscard]] std::expected<void, SystemError> removeDurably(const std::string& path,
                                                             ChangeGate& gate = ChangeGate::open());

} // namespace tidyro::platform
