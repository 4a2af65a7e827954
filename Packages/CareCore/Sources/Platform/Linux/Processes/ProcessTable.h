#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// The pids of all processes that this one can see, itself among them: a table without it is
/// another one's, or none, and an error.
[[nodiscard]] std::expected<std::vector<long>, SystemError> processIDs();

/// Whether an error of reading about a process means that it has ended; a zombie has, and a thread
/// of the kernel never had files.
[[nodiscard]] bool meansEnded(int error);
/// Whether it means that the process may not be read.
[[nodiscard]] bool meansForbidden(int error);

/// An open folder of /proc; closed by its owner's lifetime.
class ProcessFolder {
  public:
    explicit ProcessFolder(long pid);
    /// A folder inside it.
    ProcessFolder(const ProcessFolder& parent, const char* name);
    ~ProcessFolder();
    ProcessFolder(const ProcessFolder&) = delete;
    ProcessFolder& operator=(const ProcessFolder&) = delete;

    [[nodiscard]] int error() const { return error_; } ///< of opening; 0 when it is open
    [[nodiscard]] int fd() const { return fd_; }

    /// Calls `use` with each name but "." and ".."; 0, or the error that ended it.
    [[nodiscard]] int eachName(const std::function<void(const char* name)>& use) const;

  private:
    int fd_;
    int error_;
};

} // namespace tidyro::platform
