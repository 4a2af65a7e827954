#include "Platform/Linux/Mounts/MountNamespaces.h"

#include <utility>

#include <fcntl.h>

#include "Platform/Linux/Files/KernelText.h"

namespace tidyro::platform {

namespace {

/// Where a process with this root has what it calls `path`.
std::string seenFromOutside(std::string path, const std::string& root) {
    if (root == "/") return path;
    return path == "/" ? root : root + path;
}

} // namespace

MountNamespaces::MountNamespaces(std::vector<MountTableEntry> mounts) {
    // Without a name it stays empty, and no process is taken for one of this namespace.
    static_cast<void>(readKernelLink(AT_FDCWD, "/proc/self/ns/mnt", ownName_));
    namespaces_.push_back({.mounts = std::move(mounts), .roots = {}});
}

std::expected<MountNamespaces::Number, SystemError>
MountNamespaces::namespaceOf(long pid, const FolderDescriptor& process) {
    std::string name;
    // Whoever may read of a process's files may read this as well, unless something guards just
    // this. Then the process is taken to live alone: its table, which is open to all, says what
    // its paths mean.
    if (!readKernelLink(process.fd(), "ns/mnt", name)) name = std::to_string(pid);
    if (name == ownName_) return own;
    std::string root;
    if (!readKernelLink(process.fd(), "root", root)) root = "/";

    const std::scoped_lock lock(mutex_);
    const auto [known, isNew] = numbers_.try_emplace(std::move(name), namespaces_.size());
    if (isNew) namespaces_.emplace_back();
    Namespace& found = namespaces_[known->second];
    if (found.roots.contains(root)) return known->second;
    auto mounts = mountTableOf(process);
    if (!mounts) return std::unexpected(mounts.error());
    for (MountTableEntry& mount : *mounts) {
        mount.path = seenFromOutside(std::move(mount.path), root);
        found.mounts.push_back(std::move(mount));
    }
    found.roots.insert(std::move(root));
    return known->second;
}

std::vector<PathAliases> MountNamespaces::aliases() const {
    std::vector<PathAliases> aliases;
    aliases.reserve(namespaces_.size());
    const std::vector<MountTableEntry>& ours = namespaces_[own].mounts;
    for (const Namespace& one : namespaces_) {
        std::vector<MountTableEntry> theirs = one.mounts;
        // What a process opened before it left our namespace still has its path in ours.
        if (&one != &namespaces_[own]) theirs.insert(theirs.end(), ours.begin(), ours.end());
        aliases.emplace_back(theirs, ours);
    }
    return aliases;
}

} // namespace tidyro::platform
