#include "Platform/Linux/Mounts/PathAliases.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Base/PathText.h"

namespace tidyro::platform {

namespace {

/// The path that lies below `to` as `path` lies below `from`.
std::string moved(std::string_view path, std::string_view from, const std::string& to) {
    const std::string_view below = path::below(path, from);
    return below.empty() ? to : path::joined(to, below);
}

} // namespace

PathAliases::PathAliases(std::span<const MountTableEntry> theirs,
                         std::span<const MountTableEntry> ours) {
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::vector<const MountTableEntry*>> byDevice;
    for (const MountTableEntry& mount : ours) {
        byDevice[{mount.major, mount.minor}].push_back(&mount);
    }
    for (const MountTableEntry& their : theirs) {
        const auto same = byDevice.find({their.major, their.minor});
        if (same == byDevice.end()) continue;
        for (const MountTableEntry* our : same->second) {
            if (path::isInsideOrEqual(their.root, our->root)) {
                add(their.path, moved(their.root, our->root, our->path));
            } else if (path::isInsideOrEqual(our->root, their.root)) {
                add(moved(our->root, their.root, their.path), our->path);
            }
        }
    }
}

void PathAliases::add(std::string from, std::string to) {
    if (from == to) return;
    std::vector<std::string>& known = mountPoints_[std::move(from)];
    if (std::ranges::find(known, to) == known.end()) known.push_back(std::move(to));
}

void PathAliases::appendOthers(std::string_view path, std::vector<std::string>& others) const {
    for (std::string_view from = path;; from = path::parent(from)) {
        if (const auto found = mountPoints_.find(from); found != mountPoints_.end()) {
            for (const std::string& to : found->second) others.push_back(moved(path, from, to));
        }
        if (from == "/") return;
    }
}

} // namespace tidyro::platform
