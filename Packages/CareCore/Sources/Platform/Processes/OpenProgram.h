#pragma once

#include <expected>
#include <string>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro::platform {

/// The file of a program, held open between the moment at which it is checked and the moment at
/// which it starts. Somebody may put another file in its place meanwhile; the open one stays what
/// was checked. Any thread may use it.
class OpenProgram {
  public:
    /// A link is not followed (ELOOP); EINVAL for anything but a regular file.
    [[nodiscard]] static std::expected<OpenProgram, SystemError> open(const std::string& path);
    OpenProgram(OpenProgram&& other) noexcept;
    OpenProgram& operator=(OpenProgram&&) = delete;
    ~OpenProgram();

    [[nodiscard]] std::expected<FileMetadata, SystemError> metadata() const;
    /// Whether the processor runs the file itself. Anything else, a script, is read by another
    /// program, which is given its path.
    [[nodiscard]] bool isNative() const { return isNative_; }
    /// What `ChildProgram::path` is to be, so that the open file is what runs. It leads there only
    /// as long as this lives. For a script it is its path, and on macOS always: nothing there
    /// starts an open file.
    [[nodiscard]] std::string pathToRun() const;

  private:
    OpenProgram(std::string path, int fd) : path_(std::move(path)), fd_(fd) {}

    std::string path_;
    int fd_;
    bool isNative_ = false;
};

/// Whether this process may execute the file at a path, answered by the system itself. No file
/// below a mount that forbids it may be executed.
[[nodiscard]] bool isExecutable(const std::string& path);

} // namespace tidyro::platform
