#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Paths as bytes. The names of files are never assumed to be text in any encoding; only "/" has a
/// meaning. None of these functions looks at the disk.
namespace tidyro::path {

/// "/a/./b//../c/" becomes "/a/c": empty and "." components go, ".." takes the component before it
/// with it (and stops at the root), and a trailing "/" goes unless it is all there is. An absolute
/// path stays absolute; a relative one keeps the ".." that nothing stands before, and an empty
/// result is ".".
[[nodiscard]] std::string standardized(std::string_view path);

/// `path` made absolute against the process's working folder, and standardised. When that folder
/// is gone the result lies in "/dev/null", where nothing can be: any other place would be a wrong
/// one that exists.
[[nodiscard]] std::string absolute(std::string_view path);

/// The components of a path; "/" and "" have none.
[[nodiscard]] std::vector<std::string_view> components(std::string_view path);

/// `folder` and `name` with one "/" between them.
[[nodiscard]] std::string joined(std::string_view folder, std::string_view name);

/// The last component; "/" for the root.
[[nodiscard]] std::string_view lastComponent(std::string_view path);

/// The folder that holds the last component; "/" for the root and its children.
[[nodiscard]] std::string_view parent(std::string_view path);

/// What follows the last full stop of a name, without the stop. Empty where there is none, where
/// it begins the name ("a hidden file" is no extension) or ends it.
[[nodiscard]] std::string_view extensionOf(std::string_view name);

/// Whether `path` is `root` or lies below it, component by component ("/ab" does not lie in "/a").
/// Both are standardised.
[[nodiscard]] bool isInsideOrEqual(std::string_view path, std::string_view root);

/// What of `path` lies below `root`: empty for the root itself. The path lies in the root.
[[nodiscard]] std::string_view below(std::string_view path, std::string_view root);

} // namespace tidyro::path
