#include "Base/PathText.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace tidyro::path {

std::vector<std::string_view> components(std::string_view path) {
    std::vector<std::string_view> found;
    std::size_t at = 0;
    while (at < path.size()) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        if (end > at) found.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return found;
}

bool isStandardized(std::string_view path) {
    if (path == "/") return true;
    if (!path.starts_with('/')) return false;
    for (std::size_t at = 0; at != std::string_view::npos;) {
        const std::size_t end = path.find('/', at + 1);
        const std::string_view component = path.substr(at + 1, end - at - 1);
        if (component.empty() || component == "." || component == "..") return false;
        at = end;
    }
    return true;
}

std::string standardized(std::string_view path) {
    if (isStandardized(path)) return std::string(path); // nearly every path
    const bool isAbsolute = path.starts_with('/');
    std::vector<std::string_view> kept;
    for (const std::string_view component : components(path)) {
        if (component == ".") continue;
        const bool isUp = component == "..";
        if (isUp && !kept.empty() && kept.back() != "..") {
            kept.pop_back();
        } else if (!isUp || !isAbsolute) {
            kept.push_back(component);
        }
    }
    std::string result;
    result.reserve(path.size());
    for (const std::string_view component : kept) {
        if (isAbsolute || !result.empty()) result += '/';
        result += component;
    }
    if (result.empty()) result = isAbsolute ? "/" : ".";
    return result;
}

std::string absolute(std::string_view path) {
    if (path.starts_with('/')) return standardized(path);
    std::error_code failed;
    const std::string folder = std::filesystem::current_path(failed).string();
    // Some systems name a folder that was unmounted "(unreachable)/...".
    const bool isKnown = !failed && folder.starts_with('/');
    return standardized(joined(isKnown ? folder : std::string(unknownWorkingFolder), path));
}

std::string joined(std::string_view folder, std::string_view name) {
    std::string result;
    result.reserve(folder.size() + 1 + name.size());
    result += folder;
    if (!result.ends_with('/')) result += '/';
    result += name;
    return result;
}

std::string_view lastComponent(std::string_view path) {
    if (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path == "/") return path;
    return path.substr(slash + 1);
}

std::string_view parent(std::string_view path) {
    if (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || slash == 0) return "/";
    return path.substr(0, slash);
}

std::string_view extensionOf(std::string_view name) {
    const std::size_t stop = name.rfind('.');
    if (stop == std::string_view::npos || stop == 0) return {};
    return name.substr(stop + 1);
}

bool isInsideOrEqual(std::string_view path, std::string_view root) {
    if (!path.starts_with(root)) return false;
    return path.size() == root.size() || root.ends_with('/') || path[root.size()] == '/';
}

bool isOrHoldsAny(std::string_view path, std::span<const std::string> folders) {
    return std::ranges::any_of(
        folders, [&](const std::string& folder) { return isInsideOrEqual(folder, path); });
}

std::string_view below(std::string_view path, std::string_view root) {
    path.remove_prefix(root.size());
    if (path.starts_with('/')) path.remove_prefix(1);
    return path;
}

} // namespace tidyro::path
