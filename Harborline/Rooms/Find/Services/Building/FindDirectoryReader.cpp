#include "Rooms/Find/Services/Building/FindDirectoryReader.h"

#include <cerrno>
#include <limits>
#include <string>
#include <utility>

namespace tidyro {

using platform::EntryTrait;
using platform::EntryType;
using platform::FolderEntry;

namespace {

FindObjectType typeOf(EntryType type) {
    switch (type) {
    case EntryType::folder: return FindObjectType::directory;
    case EntryType::link: return FindObjectType::symlink;
    case EntryType::file: break;
    }
    return FindObjectType::file;
}

FindDirectoryListing::Entry entryOf(const FolderEntry& found) {
    // The lister calls a dot name hidden as well, which to the index is the same.
    std::uint32_t flags = 0;
    if (found.traits.has(EntryTrait::hidden)) flags |= FindDirectoryListing::hiddenFlag;
    if (found.traits.has(EntryTrait::dataless)) flags |= FindDirectoryReader::datalessFlag;
    if (found.traits.has(EntryTrait::program)) flags |= FindDirectoryListing::programFlag;
    return {.name = found.name,
            .type = typeOf(found.type),
            .size = found.logicalSize,
            .mtime = found.modified,
            .bsdFlags = flags,
            .isMountPoint = found.traits.has(EntryTrait::mountPoint)};
}

} // namespace

FindDirectoryReader::Failure FindDirectoryReader::Failure::fromError(SystemError error) {
    switch (error.code) {
    case EACCES:
    case EPERM: return {.kind = Kind::denied, .error = error};
    case ENOTDIR:
    case ELOOP: return {.kind = Kind::notDirectory, .error = error};
    default:
        return {.kind = platform::hasVanished(error) ? Kind::missing : Kind::failed,
                .error = error};
    }
}

FindDirectoryReader::FindDirectoryReader(Options options)
    : lister_({.isAskedForClones = false,
               .cancelled = options.cancelled,
               .afterBulkRead = std::move(options.afterBulkRead)}) {}

std::expected<void, FindDirectoryReader::Failure>
FindDirectoryReader::read(const platform::FolderDescriptor& folder, FindDirectoryListing& listing) {
    begin(folder);
    if (auto read = readPart(listing, std::numeric_limits<std::size_t>::max()); !read) return read;
    for (std::size_t entry = 0; entry < listing.count(); ++entry) {
        if (listing.types[entry] != FindObjectType::directory || listing.mtimes[entry] != 0) {
            continue;
        }
        const auto facts = folder.facts(std::string(listing.name(entry)).c_str());
        if (facts) listing.mtimes[entry] = facts->modified;
    }
    return {};
}

std::expected<void, FindDirectoryReader::Failure>
FindDirectoryReader::readPart(FindDirectoryListing& listing, std::size_t maxCount) {
    listing.clear();
    while (listing.count() < maxCount) {
        const FolderEntry* found = lister_.next();
        if (found == nullptr) break;
        if (found->name.size() > std::numeric_limits<std::uint32_t>::max() - listing.names.size()) {
            listing.clear(); // its offsets have 32 bits
            return std::unexpected(Failure::fromError({EOVERFLOW}));
        }
        listing.append(entryOf(*found));
    }
    if (lister_.error().code == 0) return {};
    listing.clear();
    return std::unexpected(Failure::fromError(lister_.error()));
}

} // namespace tidyro
