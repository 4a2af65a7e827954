#include "Platform/Files/DurableWriter.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Machine/RandomUUID.h"
#include "Platform/Posix/Files/Flush.h"
#include "Platform/Posix/Files/FolderFlush.h"

namespace tidyro::platform {

namespace {

constexpr std::size_t bufferBytes = 1'048'576;
constexpr std::size_t largePiece = 65'536;
constexpr std::size_t mostAtOnce = 1UL << 30; // some systems refuse more than 2 GiB

bool writesAll(int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written =
            ::write(descriptor, bytes.data(), std::min(bytes.size(), mostAtOnce));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

/// The descriptor of a name that several processes use, held by this one alone: locked, and still
/// the one of that name. Negative with errno on failure.
class SharedSibling {
  public:
    explicit SharedSibling(const std::string& path) : path_(path) {}

    [[nodiscard]] int take() const {
        for (;;) {
            const int opened = ::open(
                path_.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
            if (opened < 0) return -1;
            const std::optional<bool> isOurs = lock(opened);
            if (isOurs == true) return opened;
            const int error = errno;
            ::close(opened);
            errno = error;
            if (!isOurs) return -1;
            // Whoever had it has renamed or removed it: the name is another file's by now. Some
            // file systems number an open file otherwise than its name, and would go on for ever.
            if (isOver()) {
                errno = EWOULDBLOCK;
                return -1;
            }
        }
    }

  private:
    [[nodiscard]] bool isOver() const { return std::chrono::steady_clock::now() > end_; }
    /// None on failure. Only who holds the lock renames or removes the file, so what is seen under
    /// it stays.
    [[nodiscard]] std::optional<bool> lock(int descriptor) const {
        while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            if (errno == EINTR) continue;
            if (errno != EWOULDBLOCK || isOver()) return std::nullopt;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        struct stat locked{};
        struct stat named{};
        if (::fstat(descriptor, &locked) != 0) return std::nullopt;
        if (!S_ISREG(locked.st_mode)) {
            errno = EINVAL;
            return std::nullopt;
        }
        if (::lstat(path_.c_str(), &named) != 0) {
            if (errno == ENOENT) return false;
            return std::nullopt;
        }
        if (locked.st_dev != named.st_dev || locked.st_ino != named.st_ino) return false;
        if (::fchmod(descriptor, 0600) != 0 || ::ftruncate(descriptor, 0) != 0) return std::nullopt;
        return true;
    }

    const std::string& path_;
    std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(DurableWriter::maxWait);
};

} // namespace

std::expected<DurableWriter, SystemError> DurableWriter::open(const std::string& path,
                                                              Sibling sibling) {
    const bool isShared = sibling == Sibling::shared;
    const std::string name = path + (isShared ? "" : "." + randomUUID().text()) + ".partial";
    const int opened =
        isShared ? SharedSibling(name).take()
                 : ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return DurableWriter(path, name, opened);
}

DurableWriter::DurableWriter(std::string path, std::string sibling, int descriptor)
    : path_(std::move(path)), sibling_(std::move(sibling)), fd_(descriptor) {}

DurableWriter::DurableWriter(DurableWriter&& other) noexcept
    : path_(std::move(other.path_)),
      sibling_(std::move(other.sibling_)),
      fd_(std::exchange(other.fd_, -1)),
      gathered_(std::move(other.gathered_)) {}

DurableWriter::~DurableWriter() {
    if (fd_ < 0) return;
    ::unlink(sibling_.c_str()); // while it is locked, so that it is nobody else's
    ::close(fd_);
}

std::expected<void, SystemError> DurableWriter::append(std::span<const std::byte> bytes) {
    const bool isLarge = bytes.size() >= largePiece;
    if (!isLarge) gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
    if (isLarge || gathered_.size() >= bufferBytes) {
        if (!writesAll(fd_, gathered_)) return std::unexpected(SystemError{errno});
        gathered_.clear();
        if (isLarge && !writesAll(fd_, bytes)) return std::unexpected(SystemError{errno});
    }
    return {};
}

std::expected<void, SystemError> DurableWriter::commit() {
    if (!writesAll(fd_, gathered_) || !flushToDisk(fd_) ||
        ::rename(sibling_.c_str(), path_.c_str()) != 0) {
        return std::unexpected(SystemError{errno});
    }
    // The lock goes with the descriptor, after the name has gone. What was flushed is on the disk;
    // closing has nothing left to fail with.
    ::close(std::exchange(fd_, -1));
    return flushFolder(std::string(path::parent(path_)));
}

} // namespace tidyro::platform
