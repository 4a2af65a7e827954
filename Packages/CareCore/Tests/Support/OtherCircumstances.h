#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Support/TemporaryFolder.h"

/// Circumstances that a test process must not put itself into: they are tried in a child process,
/// which hands back a text.
namespace tidyro::testing {

/// Runs `work` in a child and returns its text; the test fails when the child does not end well.
[[nodiscard]] std::string inChild(const std::function<std::string()>& work);

/// The same without root's privilege to read everything.
[[nodiscard]] std::string asOrdinaryUser(const std::function<std::string()>& work);

/// The same in a mount namespace of its own. None where that is not allowed; the test then skips.
[[nodiscard]] std::optional<std::string> inMountNamespace(const std::function<std::string()>& work);

/// Whether the system tells what runs and what is mounted. A bare chroot of Linux, without /proc,
/// does not; tests of the running system skip there.
[[nodiscard]] bool isProcMounted();

/// Whether a sanitizer watches this process. It needs descriptors of its own, and another program
/// that traces the process makes it crawl.
[[nodiscard]] bool isSanitized();

/// Lets this process open so many files more than it has open now. Only in a child.
[[nodiscard]] bool leaveOpenFiles(unsigned count);

/// Mounts `source` at `target` inside `inMountNamespace`.
[[nodiscard]] bool bindMount(const std::string& source, const std::string& target);

/// A fresh file system of a type ("btrfs", "xfs") in an image, mounted for as long as this lives.
class MountedImage {
  public:
    /// None where images cannot be made or mounted here; the test then skips.
    [[nodiscard]] static std::unique_ptr<MountedImage> make(const std::string& type);
    ~MountedImage();
    MountedImage(const MountedImage&) = delete;
    MountedImage& operator=(const MountedImage&) = delete;

    [[nodiscard]] const TemporaryFolder& folder() const { return *mounted_; }

  private:
    MountedImage() = default;

    TemporaryFolder place_;
    std::unique_ptr<TemporaryFolder> mounted_;
};

/// Runs a command line quietly; true when it ends with 0.
[[nodiscard]] bool runQuietly(const std::string& command);

} // namespace tidyro::testing
