#include "Platform/DurableFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Posix/Flush.h"
#include "Platform/RandomUUID.h"

namespace tidyro::platform {

namespace {

std::unexpected<SystemError> lastError() { return std::unexpected(SystemError{errno}); }

class OwnedFile {
  public:
    OwnedFile(const char* path, int flags, mode_t mode = 0)
        : descriptor_(::open(path, flags | O_CLOEXEC, mode)) {}
    OwnedFile(const OwnedFile&) = delete;
    OwnedFile& operator=(const OwnedFile&) = delete;
    ~OwnedFile() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int number() const { return descriptor_; }
    /// Some file systems report a failed write only here.
    [[nodiscard]] bool closes() { return ::close(std::exchange(descriptor_, -1)) == 0; }

  private:
    int descriptor_;
};

bool writesAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::expected<void, SystemError> flushFolder(const std::string& path) {
    const OwnedFile folder(path.c_str(), O_RDONLY | O_DIRECTORY);
    // A folder that may be written but not read, and some network volumes: there it is not to be
    // had, and the rename stands all the same.
    if (!folder.isOpen() && errno == EACCES) return {};
    if (folder.isOpen() && flushToDisk(folder.number())) return {};
    if (errno == EINVAL || errno == ENOTSUP) return {};
    return lastError();
}

} // namespace

std::expected<void, SystemError> writeDurably(const std::string& path, std::string_view bytes) {
    const std::string sibling = path + "." + randomUUID().text() + ".partial";
    OwnedFile file(sibling.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (!file.isOpen()) return lastError();
    if (!writesAll(file.number(), bytes) || !flushToDisk(file.number()) || !file.closes() ||
        ::rename(sibling.c_str(), path.c_str()) != 0) {
        const SystemError error{errno};
        ::unlink(sibling.c_str());
        return std::unexpected(error);
    }
    return flushFolder(std::string(path::parent(path)));
}

std::expected<void, SystemError> makePrivateFolder(const std::string& path) {
    std::string folder;
    for (const std::string_view component : path::components(path)) {
        const std::string parent = folder.empty() ? "/" : folder;
        folder = path::joined(parent, component);
        if (::mkdir(folder.c_str(), 0700) == 0) {
            if (auto flushed = flushFolder(parent); !flushed) return flushed;
            continue;
        }
        // A folder that is there may refuse in other ways than EEXIST (read-only, closed).
        const SystemError refused{errno};
        struct stat status{};
        if (::stat(folder.c_str(), &status) != 0) return std::unexpected(refused);
        if (!S_ISDIR(status.st_mode)) return std::unexpected(SystemError{ENOTDIR});
    }
    return {};
}

std::expected<std::string, SystemError> readWholeFile(const std::string& path, std::size_t most) {
    const OwnedFile file(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (!file.isOpen()) return lastError();
    struct stat status{};
    if (::fstat(file.number(), &status) != 0) return lastError();
    if (!S_ISREG(status.st_mode)) return std::unexpected(SystemError{EINVAL});

    constexpr std::size_t step = 65'536;
    std::string bytes;
    for (;;) {
        const std::size_t held = bytes.size();
        bytes.resize(held + step);
        const ssize_t got = ::read(file.number(), bytes.data() + held, step);
        if (got < 0 && errno != EINTR) return lastError();
        bytes.resize(held + static_cast<std::size_t>(got < 0 ? 0 : got));
        if (got == 0) return bytes;
        if (bytes.size() > most) return std::unexpected(SystemError{EFBIG});
    }
}

} // namespace tidyro::platform
