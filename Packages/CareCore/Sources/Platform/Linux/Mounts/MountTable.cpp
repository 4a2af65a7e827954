#include "Platform/Linux/Mounts/MountTable.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <utility>

#include "Platform/Linux/Files/KernelText.h"

namespace tidyro::platform {

namespace {

/// Takes the next word off the front of a line.
std::string_view takeWord(std::string_view& line) {
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return word;
}

template <class Number>
bool readNumber(std::string_view text, Number& number) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    const auto read = std::from_chars(begin, end, number);
    return read.ec == std::errc() && read.ptr == end;
}

/// "36 35 98:0 /root /mounted/at rw,noatime shared:1 - ext4 /dev/sda1 rw". Any number of words
/// stands before the "-".
std::optional<MountTableEntry> parsedEntry(std::string_view line) {
    MountTableEntry entry{};
    if (!readNumber(takeWord(line), entry.number)) return std::nullopt;
    if (!readNumber(takeWord(line), entry.above)) return std::nullopt;
    const std::string_view device = takeWord(line);
    const std::size_t colon = device.find(':');
    if (colon == std::string_view::npos || !readNumber(device.substr(0, colon), entry.major) ||
        !readNumber(device.substr(colon + 1), entry.minor)) {
        return std::nullopt;
    }
    entry.root = withoutEscapes(takeWord(line));
    entry.path = withoutEscapes(takeWord(line));
    while (!line.empty() && takeWord(line) != "-") {}
    entry.fileSystem = withoutEscapes(takeWord(line));
    entry.source = withoutEscapes(takeWord(line));
    if (!entry.path.starts_with('/') || entry.fileSystem.empty()) return std::nullopt;
    return entry;
}

} // namespace

std::expected<std::vector<MountTableEntry>, SystemError> parsedMountTable(std::string_view text) {
    std::vector<MountTableEntry> entries;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        auto entry = parsedEntry(text.substr(0, end));
        if (!entry) return std::unexpected(SystemError{EINVAL});
        entries.push_back(*std::move(entry));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return entries;
}

std::expected<std::vector<MountTableEntry>, SystemError> mountTable() {
    std::string text;
    if (const auto read = readKernelFile("/proc/self/mountinfo", text); !read) {
        return std::unexpected(read.error());
    }
    auto entries = parsedMountTable(text);
    if (entries && entries->empty()) return std::unexpected(SystemError{ENODATA});
    return entries;
}

std::expected<std::vector<MountTableEntry>, SystemError>
mountTableOf(const FolderDescriptor& process) {
    std::string text;
    if (const auto read = readKernelFile(process.fd(), "mountinfo", text); !read) {
        // A process that ends has left its namespace before its folder goes: then it is EINVAL.
        return std::unexpected(read.error().code == EINVAL ? SystemError{ESRCH} : read.error());
    }
    return parsedMountTable(text);
}

} // namespace tidyro::platform
