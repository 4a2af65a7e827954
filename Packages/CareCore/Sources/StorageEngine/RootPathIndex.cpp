#include "StorageEngine/RootPathIndex.h"

#include <algorithm>
#include <bit>

namespace tidyro {

namespace {

// FNV-1a: what is hashed of a path serves for each of its folders on the way.
constexpr std::uint64_t start = 0xCBF2'9CE4'8422'2325;

constexpr std::uint64_t continued(std::uint64_t hash, char byte) {
    return (hash ^ static_cast<unsigned char>(byte)) * 0x0000'0100'0000'01B3;
}

/// Its low bits hear only of the low bits of what was hashed.
constexpr std::size_t slotOf(std::uint64_t hash, std::size_t size) {
    return static_cast<std::size_t>((hash ^ hash >> 32) * 0x9E37'79B9'7F4A'7C15 >> 32) & (size - 1);
}

std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = start;
    for (const char byte : text) hash = continued(hash, byte);
    return hash;
}

} // namespace

RootPathIndex::RootPathIndex(std::span<const std::string> roots) {
    for (const std::string& root : roots) {
        if (root == "/") holdsAll_ = true;
        if (root.size() > 1 && root.starts_with('/')) roots_.push_back(root);
    }
    std::ranges::sort(roots_);
    const auto repeated = std::ranges::unique(roots_);
    roots_.erase(repeated.begin(), repeated.end());
    if (roots_.empty()) return;
    table_.resize(std::bit_ceil(roots_.size() * 2));
    for (std::uint32_t number = 0; number < roots_.size(); ++number) {
        std::size_t slot = slotOf(hashOf(roots_[number]), table_.size());
        while (table_[slot] != 0) slot = (slot + 1) & (table_.size() - 1);
        table_[slot] = number + 1;
    }
}

bool RootPathIndex::has(std::string_view root, std::uint64_t hash) const {
    std::size_t slot = slotOf(hash, table_.size());
    for (; table_[slot] != 0; slot = (slot + 1) & (table_.size() - 1)) {
        if (roots_[table_[slot] - 1] == root) return true;
    }
    return false;
}

bool RootPathIndex::contains(std::string_view path) const {
    if (!path.starts_with('/')) return false;
    if (holdsAll_) return true;
    if (table_.empty()) return false;
    std::uint64_t hash = start;
    for (std::size_t at = 0; at < path.size(); ++at) {
        if (path[at] == '/' && at > 0 && has(path.substr(0, at), hash)) return true;
        hash = continued(hash, path[at]);
    }
    return has(path, hash);
}

} // namespace tidyro
