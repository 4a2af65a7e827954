#include "Platform/Linux/Mounts/MountTable.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <utility>

#include "Platform/Linux/Files/KernelText.h"

namespace tidyro::platform {

namespace {

/// The next word of a line, which words are taken from one after another.
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

/// "36 35 98:0 /root /mounted/at rw,noatime shared:1 - ext4 /dev/sda1 rw": any number of words
/// stands before the "-".
std::optional<MountTableEntry> parsedLine(std::string_view line) {
    MountTableEntry entry{};
    if (!readNumber(takeWord(line), entry.number)) return std::nullopt;
    takeWord(line); // the mount above
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
        auto entry = parsedLine(text.substr(0, end));
        if (!entry) return std::unexpected(SystemError{EINVAL});
        entries.push_back(*std::move(entry));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return entries;
}

std::expected<std::vector<MountTableEntry>, SystemError> mountTable() {
    std::string text;
    if (const int error = readKernelFile("/proc/self/mountinfo", text)) {
        return std::unexpected(SystemError{error});
    }
    auto entries = parsedMountTable(text);
    if (entries && entries->empty()) return std::unexpected(SystemError{ENODATA});
    return entries;
}

std::expected<std::vector<MountTableEntry>, SystemError> mountTableOf(int process) {
    std::string text;
    if (const int error = readKernelFile(process, "mountinfo", text)) {
        // So it says of a process that has already left its namespace because it ends.
        return std::unexpected(SystemError{error == EINVAL ? ESRCH : error});
    }
    return parsedMountTable(text);
}

} // namespace tidyro::platform
