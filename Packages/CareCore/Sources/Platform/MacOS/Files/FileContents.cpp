#include "Platform/Files/FileContents.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/MacOS/Files/FileMetadataOf.h"
#include "Platform/Posix/Files/OpenQuietly.h"

namespace tidyro::platform {

// There is no way here to read without the date of use telling of it.
int openQuietly(int folder, const char* name, FileContents::OwnerHint&) {
    int opened = -1;
    do {
        opened = ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    } while (opened < 0 && errno == EINTR);
    if (opened >= 0) ::fcntl(opened, F_NOCACHE, 1);
    return opened;
}

std::expected<FileMetadata, SystemError> FileContents::metadata() const {
    struct stat status{};
    if (::fstat(fd_, &status) != 0) return std::unexpected(SystemError{errno});
    return fileMetadataOf(status);
}

void FileContents::expectSingleReads() { ::fcntl(fd_, F_RDAHEAD, 0); }

std::expected<std::size_t, SystemError> FileContents::read(std::uint64_t offset,
                                                           std::span<std::byte> into) {
    constexpr std::size_t most = std::numeric_limits<int>::max(); // of one call
    std::size_t done = 0;
    while (done < into.size()) {
        const ssize_t count = ::pread(fd_, into.data() + done, std::min(into.size() - done, most),
                                      static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::unexpected(SystemError{errno});
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

namespace {

std::optional<std::int64_t> placeOf(int file, std::uint64_t offset) {
    log2phys question{};
    question.l2p_contigbytes = 1;
    question.l2p_devoffset = static_cast<off_t>(offset);
    if (::fcntl(file, F_LOG2PHYS_EXT, &question) != 0) return std::nullopt;
    return question.l2p_devoffset;
}

} // namespace

std::optional<FileExtent> FileContents::extent(const FileMetadata& seen) const {
    if (seen.byteCount == 0) return std::nullopt;
    const auto first = placeOf(fd_, 0);
    const auto last = first ? placeOf(fd_, seen.byteCount - 1) : std::nullopt;
    if (!last) return std::nullopt;
    return FileExtent{.fileSystem = seen.identity.device, .first = *first, .last = *last};
}

bool mayShareBlocks(const FolderDescriptor&) { return true; }

} // namespace tidyro::platform
