#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidyro {

/// Where a file or folder lies: an absolute, standardised path of bytes, and a mark for folders.
/// JSON and records carry it; the disk is never looked at.
///
///     const FileURL caches = FileURL::folder("/home/ada/.cache");
///     caches.text()                        // "file:///home/ada/.cache/"
///     caches.appending("a b").text()       // "file:///home/ada/.cache/a%20b"
///
/// Two URLs are equal when their paths and their folder marks are. Whether two URLs lead to the
/// same item on the disk, only the items' identities tell.
class FileURL {
  public:
    FileURL() = default; ///< the root folder

    /// A relative path is made absolute against the process's working folder.
    [[nodiscard]] static FileURL file(std::string_view path);
    [[nodiscard]] static FileURL folder(std::string_view path);

    /// Reads "file:///percent%20encoded"; "file://localhost/..." is the same. None for any other
    /// scheme or host, a relative path, a malformed escape or an encoded zero byte.
    [[nodiscard]] static std::optional<FileURL> fromText(std::string_view text);

    /// "file://" and the percent-encoded path; a folder's ends with "/". Every byte that is not an
    /// unreserved character of RFC 3986 or "/" is encoded, so a name in any encoding survives.
    [[nodiscard]] std::string text() const;

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] bool isFolder() const noexcept { return isFolder_; }
    [[nodiscard]] std::string_view lastComponent() const;
    [[nodiscard]] FileURL parent() const;
    [[nodiscard]] FileURL appending(std::string_view relativePath) const;
    [[nodiscard]] FileURL appendingFolder(std::string_view relativePath) const;

    friend auto operator<=>(const FileURL&, const FileURL&) = default;

  private:
    FileURL(std::string path, bool isFolder)
        : path_(std::move(path)), isFolder_(isFolder || path_ == "/") {} // the root is no file

    std::string path_ = "/";
    bool isFolder_ = true;
};

/// The bytes that "a%20b" stands for. None with a malformed escape or a zero byte.
[[nodiscard]] std::optional<std::string> percentDecoded(std::string_view text);

} // namespace tidyro
