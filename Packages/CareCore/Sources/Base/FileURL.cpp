#include "Base/FileURL.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Base/PathText.h"

namespace tidyro {

namespace {

constexpr std::string_view scheme = "file://";

constexpr bool isUnreservedByte(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '_' ||
           byte == '~' || byte == '/';
}

/// Whole reports are written byte by byte: a table answers fastest.
constexpr std::array<bool, 256> unreservedBytes = [] {
    std::array<bool, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = isUnreservedByte(static_cast<unsigned char>(byte));
    }
    return table;
}();

bool isUnreserved(char byte) { return unreservedBytes[static_cast<unsigned char>(byte)]; }

/// Whether appending the name to a standardised path gives one.
bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

std::string pathBelow(const std::string& path, std::string_view relativePath) {
    std::string joined = path::joined(path, relativePath);
    return isPlainName(relativePath) ? joined : path::standardized(joined);
}

std::optional<unsigned char> hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return static_cast<unsigned char>(digit - '0');
    if (digit >= 'a' && digit <= 'f') return static_cast<unsigned char>(digit - 'a' + 10);
    if (digit >= 'A' && digit <= 'F') return static_cast<unsigned char>(digit - 'A' + 10);
    return std::nullopt;
}

} // namespace

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            bytes += text[at];
            continue;
        }
        if (at + 2 >= text.size()) return std::nullopt;
        const auto high = hexDigit(text[at + 1]);
        const auto low = hexDigit(text[at + 2]);
        if (!high || !low) return std::nullopt;
        bytes += static_cast<char>(*high << 4 | *low);
        at += 2;
    }
    if (bytes.find('\0') != std::string::npos) return std::nullopt;
    return bytes;
}

FileURL FileURL::file(std::string_view path) { return {path::absolute(path), false}; }

FileURL FileURL::folder(std::string_view path) { return {path::absolute(path), true}; }

std::optional<FileURL> FileURL::fromText(std::string_view text) {
    if (!text.starts_with(scheme)) return std::nullopt;
    text.remove_prefix(scheme.size());
    constexpr std::string_view thisMachine = "localhost";
    if (text.starts_with(thisMachine)) text.remove_prefix(thisMachine.size());
    if (!text.starts_with('/')) return std::nullopt;
    const auto path = percentDecoded(text);
    if (!path) return std::nullopt;
    return FileURL(path::standardized(*path), path->ends_with('/'));
}

std::string FileURL::text() const {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text(scheme);
    text.reserve(text.size() + path_.size() + 1);
    for (auto at = path_.begin(); at != path_.end(); ++at) {
        const auto reserved = std::find_if_not(at, path_.end(), isUnreserved);
        text.append(at, reserved);
        at = reserved;
        if (at == path_.end()) break;
        const auto byte = static_cast<unsigned char>(*at);
        text += '%';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    if (isFolder_ && !text.ends_with('/')) text += '/';
    return text;
}

std::string_view FileURL::lastComponent() const { return path::lastComponent(path_); }

FileURL FileURL::parent() const { return {std::string(path::parent(path_)), true}; }

FileURL FileURL::appending(std::string_view relativePath) const {
    return {pathBelow(path_, relativePath), false};
}

FileURL FileURL::appendingFolder(std::string_view relativePath) const {
    return {pathBelow(path_, relativePath), true};
}

} // namespace tidyro
