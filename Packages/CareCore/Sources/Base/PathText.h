#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Paths as bytes. The names of files are never assumed to be text in any encoding; only "/" has a
/// meaning. None of these functions looks at the disk.
namespace tidyro::path {

/// "/a/./b//../c/" becomes "/a/c". Empty and "." components go; ".." goes together with the
/// component before it, and stops at the root. A trailing "/" goes unless it is the whole path. An
/// absolute path stays absolute. A relative path keeps each ".." that no component stands before.
/// When nothing of it remains, it becomes ".".
[[nodiscard]] std::string standardized(std::string_view path);

/// Whether the path is absolute and `standardized` would leave it as it is.
[[nodiscard]] bool isStandardized(std::string_view path);

/// Stands for a working folder that is gone: nothing can lie in it. Any other folder would be a
/// wrong one that exists.
inline constexpr std::string_view unknownWorkingFolder = "/dev/null";

/// `path` made absolute against the process's working folder, and standardised. When that folder is
/// gone the result lies in `unknownWorkingFolder`.
[[nodiscard]] std::string absolute(std::string_view path);

/// The components of a path; "/" and "" have none.
[[nodiscard]] std::vector<std::string_view> components(std::string_view path);

/// `folder` and `name` with one "/" between them.
[[nodiscard]] std::string joined(std::string_view folder, std::string_view name);

/// The last component; "/" for the root.
[[nodiscard]] std::string_view lastComponent(std::string_view path);

/// The folder that holds the last component; "/" for the root and its children.
[[nodiscard]] std::string_view parent(std::string_view path);

/// The part of a name behind its last full stop. Empty when there is no stop, when the only stop
/// begins the name (".bashrc" is a hidden file without an extension) and when a stop ends the name.
[[nodiscard]] std::string_view extensionOf(std::string_view name);

/// Whether `path` is `root` or lies below it, component by component ("/ab" does not lie in "/a").
/// Both are standardised.
[[nodiscard]] bool isInsideOrEqual(std::string_view path, std::string_view root);

/// Whether `path` is one of the folders or holds one of them.
[[nodiscard]] bool isOrHoldsAny(std::string_view path, std::span<const std::string> folders);

/// The part of `path` below `root`, which is empty for the root itself. The path must lie in the
/// root.
[[nodiscard]] std::string_view below(std::string_view path, std::string_view root);

} // namespace tidyro::path
