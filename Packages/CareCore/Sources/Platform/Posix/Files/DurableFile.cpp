#include "Platform/Files/DurableFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Files/InputFile.h"
#include "Platform/Machine/RandomUUID.h"
#include "Platform/Posix/Files/Flush.h"

namespace tidyro::platform {

namespace {

constexpr std::size_t bufferBytes = 1'048'576;
constexpr std::size_t largePiece = 65'536;
constexpr std::size_t maxPerWrite = 1UL << 30; // some systems refuse more than 2 GiB

std::expected<void, SystemError> writeBytes(int fd, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), std::min(bytes.size(), maxPerWrite));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return std::unexpected(SystemError{errno});
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return {};
}

/// Takes a file whose name several processes use for this process alone: locked, emptied, and still
/// the file of that name.
class SharedSibling {
  public:
    explicit SharedSibling(const std::string& path) : path_(path) {}

    /// The file's descriptor, which the caller closes.
    [[nodiscard]] std::expected<int, SystemError> take() const {
        for (;;) {
            const int fd = ::open(path_.c_str(),
                                  O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
            if (fd < 0) return std::unexpected(SystemError{errno});
            const auto isOurs = lock(fd);
            if (isOurs && *isOurs) return fd;
            ::close(fd);
            if (!isOurs) return std::unexpected(isOurs.error());
            // Whoever had it has renamed or removed it: the name is another file's by now. Some
            // file systems number an open file otherwise than its name, and would go on for ever.
            if (isOver()) return std::unexpected(SystemError{EWOULDBLOCK});
        }
    }

  private:
    [[nodiscard]] bool isOver() const { return std::chrono::steady_clock::now() > end_; }
    /// Locks and empties the file; false when the name is another file's by now. Only the holder of
    /// the lock renames or removes the file, so nothing changes after the look at the name.
    [[nodiscard]] std::expected<bool, SystemError> lock(int fd) const {
        const auto failed = [] { return std::unexpected(SystemError{errno}); };
        while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            if (errno == EINTR) continue;
            if (errno != EWOULDBLOCK || isOver()) return failed();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        struct stat locked{};
        struct stat named{};
        if (::fstat(fd, &locked) != 0) return failed();
        if (!S_ISREG(locked.st_mode)) return std::unexpected(SystemError{EINVAL});
        if (::lstat(path_.c_str(), &named) != 0) {
            if (errno == ENOENT) return false;
            return failed();
        }
        if (locked.st_dev != named.st_dev || locked.st_ino != named.st_ino) return false;
        if (::fchmod(fd, 0600) != 0 || ::ftruncate(fd, 0) != 0) return failed();
        return true;
    }

    const std::string& path_;
    std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(DurableWriter::maxWait);
};

} // namespace

std::expected<DurableWriter, SystemError> DurableWriter::open(const std::string& path,
                                                              Sibling sibling, ChangeGate& gate) {
    if (sibling == Sibling::unique) return openAlone(path, {.gate = &gate});
    const std::string name = path + ".partial";
    int fd = -1;
    const auto made = pass(gate, DiskChange::makeFile, [&]() -> std::expected<void, SystemError> {
        const auto taken = SharedSibling(name).take();
        if (!taken) return std::unexpected(taken.error());
        fd = *taken;
        return {};
    });
    if (!made) return std::unexpected(made.error());
    return DurableWriter(path, name, fd, gate);
}

std::expected<DurableWriter, SystemError> DurableWriter::openAlone(const std::string& path,
                                                                   const DurableOptions& options) {
    const bool isNamed = !options.sibling.empty();
    const std::string name =
        isNamed ? options.sibling : path + "." + randomUUID().text() + ".partial";
    int fd = -1;
    const auto made =
        pass(*options.gate, DiskChange::makeFile, [&]() -> std::expected<void, SystemError> {
            constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
            fd = ::open(name.c_str(), flags, 0600);
            if (fd < 0 && errno == EEXIST && isNamed && ::unlink(name.c_str()) == 0) {
                fd = ::open(name.c_str(), flags, 0600);
            }
            if (fd < 0) return std::unexpected(SystemError{errno});
            return {};
        });
    if (!made) return std::unexpected(made.error());
    return DurableWriter(path, name, fd, *options.gate);
}

DurableWriter::DurableWriter(std::string path, std::string sibling, int fd, ChangeGate& gate)
    : path_(std::move(path)), sibling_(std::move(sibling)), fd_(fd), gate_(&gate) {}

DurableWriter::DurableWriter(DurableWriter&& other) noexcept
    : path_(std::move(other.path_)),
      sibling_(std::move(other.sibling_)),
      fd_(std::exchange(other.fd_, -1)),
      gate_(other.gate_),
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
        const auto write = [&](std::span<const std::byte> part) {
            return pass(*gate_, DiskChange::write, [&] { return writeBytes(fd_, part); });
        };
        if (auto written = write(gathered_); !written) return written;
        gathered_.clear();
        if (isLarge) return write(bytes);
    }
    return {};
}

std::expected<void, SystemError> DurableWriter::flushBytes() {
    auto written = pass(*gate_, DiskChange::write, [&] { return writeBytes(fd_, gathered_); });
    if (!written) return written;
    return passFlush(*gate_, {.file = fd_}, [&] { return flushToDisk(fd_); });
}

std::expected<void, SystemError> DurableWriter::commit() {
    if (auto flushed = flushBytes(); !flushed) return flushed;
    auto renamed = pass(*gate_, DiskChange::rename, [&]() -> std::expected<void, SystemError> {
        if (::rename(sibling_.c_str(), path_.c_str()) == 0) return {};
        return std::unexpected(SystemError{errno});
    });
    if (!renamed) return renamed;
    // The lock goes with the descriptor, after the name has gone. What was flushed is on the disk;
    // closing has nothing left to fail with.
    ::close(std::exchange(fd_, -1));
    const std::string folder(path::parent(path_));
    return passFlush(*gate_, {.folder = folder}, [&] { return flushFolder(folder); });
}

std::expected<void, SystemError>
writeDurablyInPieces(const std::string& path,
                     const std::function<std::expected<void, SystemError>(DurableWriter&)>& write,
                     const DurableOptions& options) {
    auto writer = DurableWriter::openAlone(path, options);
    if (!writer) return std::unexpected(writer.error());
    if (auto written = write(*writer); !written) return written;
    return writer->commit();
}

std::expected<void, SystemError> writeDurably(const std::string& path, std::string_view bytes,
                                              const DurableOptions& options) {
    const auto write = [&](DurableWriter& writer) {
        return writer.append(std::as_bytes(std::span(bytes)));
    };
    return writeDurablyInPieces(path, write, options);
}

std::expected<void, SystemError> makeDurably(const std::string& path, std::string_view bytes,
                                             ChangeGate& gate) {
    auto writer = DurableWriter::openAlone(path, {.gate = &gate});
    if (!writer) return std::unexpected(writer.error());
    if (auto written = writer->append(std::as_bytes(std::span(bytes))); !written) return written;
    if (auto flushed = writer->flushBytes(); !flushed) return flushed;
    // A second name never replaces anything, on every system; then the first one goes.
    auto done = pass(gate, DiskChange::makeFile, [&]() -> std::expected<void, SystemError> {
        if (::link(writer->sibling_.c_str(), path.c_str()) == 0) return {};
        return std::unexpected(SystemError{errno});
    });
    const int refused = done ? 0 : done.error().code;
    if (refused == EPERM || refused == ENOTSUP || refused == EMLINK) {
        // No second names here. The file is then seen before it is complete, by those who ask
        // in this very moment.
        const int fd =
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            done = std::unexpected(SystemError{errno});
        } else {
            done = writeBytes(fd, std::as_bytes(std::span(bytes)));
            if (done) done = flushToDisk(fd);
            ::close(fd);
            if (!done) ::unlink(path.c_str());
        }
    }
    ::unlink(writer->sibling_.c_str());
    if (!done) return done;
    const std::string folder(path::parent(path));
    return passFlush(gate, {.folder = folder}, [&] { return flushFolder(folder); });
}

std::expected<void, SystemError> makePrivateFolder(const std::string& path, ChangeGate& gate) {
    std::string folder;
    for (const std::string_view component : path::components(path)) {
        const std::string parent = folder.empty() ? "/" : folder;
        folder = path::joined(parent, component);
        struct stat status{};
        if (::stat(folder.c_str(), &status) == 0) {
            if (!S_ISDIR(status.st_mode)) return std::unexpected(SystemError{ENOTDIR});
            continue;
        }
        auto made = pass(gate, DiskChange::makeFolder, [&]() -> std::expected<void, SystemError> {
            if (::mkdir(folder.c_str(), 0700) == 0) return {};
            const SystemError refused{errno};
            // Another may have made it meanwhile.
            if (::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return {};
            return std::unexpected(refused);
        });
        if (!made) return made;
        auto flushed = passFlush(gate, {.folder = parent}, [&] { return flushFolder(parent); });
        if (!flushed) return flushed;
    }
    return {};
}

std::expected<std::string, SystemError> readWholeFile(const std::string& path,
                                                      std::size_t maxByteCount) {
    auto file = InputFile::open(path);
    if (!file) return std::unexpected(file.error());
    // Not by its length: a file of the kernel's says 0, and one may grow.
    constexpr std::size_t step = 65'536;
    std::string bytes;
    for (;;) {
        const std::size_t held = bytes.size();
        bytes.resize(held + step);
        const auto got = file->read(std::as_writable_bytes(std::span(bytes).subspan(held)));
        if (!got) return std::unexpected(got.error());
        bytes.resize(held + *got);
        if (bytes.size() > maxByteCount) return std::unexpected(SystemError{EFBIG});
        if (*got < step) return bytes;
    }
}

} // namespace tidyro::platform
