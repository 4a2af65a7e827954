#include "Platform/Folders/FolderFiles.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/Machine/RandomUUID.h"
#include "Platform/Posix/Files/Flush.h"

namespace tidyro::platform {

namespace {

using FileChange = std::expected<void, SystemError>;

FileChange failedFileChange() { return std::unexpected(SystemError{errno}); }

FileChange writeWhole(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return failedFileChange();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

FolderChanges::Changed asChanged(const FileChange& change) {
    if (change) return {};
    return std::unexpected(ChangeError::fromSystem(change.error()));
}

} // namespace

FolderChanges::Changed makeFileIn(const EntryName& at, std::string_view bytes, ChangeGate& gate,
                                  FileFlush flush) {
    int fd = -1;
    const auto made = pass(gate, DiskChange::makeFile, [&]() -> FileChange {
        fd = ::openat(at.folder.fd(), at.name.c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        return fd >= 0 ? FileChange() : failedFileChange();
    });
    if (!made) return asChanged(made);
    auto written = pass(gate, DiskChange::write, [&] { return writeWhole(fd, bytes); });
    if (written && flush == FileFlush::now) {
        written = passFlush(gate, {.file = fd}, [&] { return flushToDisk(fd); });
    }
    ::close(fd);
    if (!written) ::unlinkat(at.folder.fd(), at.name.c_str(), 0);
    return asChanged(written);
}

FolderChanges::Changed replaceFileIn(const EntryName& at, std::string_view bytes,
                                     ChangeGate& gate) {
    const std::string sibling = "." + randomUUID().text() + ".partial";
    if (auto made = makeFileIn({.folder = at.folder, .name = sibling}, bytes, gate); !made) {
        return made;
    }
    const auto renamed = pass(gate, DiskChange::rename, [&]() -> FileChange {
        return ::renameat(at.folder.fd(), sibling.c_str(), at.folder.fd(), at.name.c_str()) == 0
                   ? FileChange()
                   : failedFileChange();
    });
    if (!renamed) ::unlinkat(at.folder.fd(), sibling.c_str(), 0);
    return asChanged(renamed);
}

std::expected<std::string, SystemError> readFileIn(const EntryName& at, std::size_t maxByteCount) {
    const int fd =
        ::openat(at.folder.fd(), at.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::unexpected(SystemError{errno});
    struct stat status{};
    std::expected<std::string, SystemError> read = std::string();
    if (::fstat(fd, &status) != 0) {
        read = std::unexpected(SystemError{errno});
    } else if (!S_ISREG(status.st_mode)) {
        read = std::unexpected(SystemError{EINVAL});
    }
    // Room for what the file has now, which is all of it unless it grows or does not tell (/proc).
    constexpr std::size_t minRoom = 256;
    const auto size = static_cast<std::size_t>(std::max<off_t>(status.st_size, 0));
    std::size_t length = 0;
    if (read) read->resize(std::min(std::max(size, minRoom), maxByteCount) + 1);
    while (read) {
        const ssize_t got = ::read(fd, read->data() + length, read->size() - length);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            read = std::unexpected(SystemError{errno});
            break;
        }
        length += static_cast<std::size_t>(got);
        if (length > maxByteCount) {
            read = std::unexpected(SystemError{EFBIG});
        } else if (got == 0 || (length == size && size > 0)) {
            read->resize(length);
            break;
        } else if (length == read->size()) {
            read->resize(std::min(length * 2, maxByteCount + 1));
        }
    }
    ::close(fd);
    return read;
}

std::expected<std::string, SystemError> linkTargetIn(const EntryName& at) {
    std::string target(256, '\0'); // hardly any is longer
    for (;;) {
        const ssize_t got =
            ::readlinkat(at.folder.fd(), at.name.c_str(), target.data(), target.size());
        if (got < 0) return std::unexpected(SystemError{errno});
        const auto length = static_cast<std::size_t>(got);
        if (length == target.size()) {
            target.resize(length * 2);
            continue;
        }
        target.resize(length);
        return target;
    }
}

} // namespace tidyro::platform
