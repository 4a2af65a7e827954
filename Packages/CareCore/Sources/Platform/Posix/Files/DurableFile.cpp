#include "Platform/Files/DurableFile.h"

#include <cerrno>
#include <span>

#include <sys/stat.h>

#include "Base/PathText.h"
#include "Platform/Files/DurableWriter.h"
#include "Platform/Files/InputFile.h"
#include "Platform/Posix/Files/FolderFlush.h"

namespace tidyro::platform {

std::expected<void, SystemError> writeDurably(const std::string& path, std::string_view bytes) {
    auto writer = DurableWriter::open(path, DurableWriter::Sibling::unique);
    if (!writer) return std::unexpected(writer.error());
    if (auto written = writer->append(std::as_bytes(std::span(bytes))); !written) return written;
    return writer->commit();
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
        if (bytes.size() > most) return std::unexpected(SystemError{EFBIG});
        if (*got < step) return bytes;
    }
}

} // namespace tidyro::platform
