// Appending: the columns and the flags of new entries.
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

constexpr std::array<std::string_view, 11> systemTopLevelNames{
    "System", "Library", "private", "usr", "bin", "sbin", "cores", "dev", "etc", "var", "tmp"};

std::string_view allNames(const FindDirectoryListing& listing) {
    const std::uint32_t first = listing.starts[0];
    return {listing.names.data() + first, listing.starts[listing.count()] - first};
}

} // namespace

FindIndexStorage::FindIndexStorage(std::string path, std::optional<bool> marks) {
    rootPath = std::move(path);
    if (rootPath.size() > 1 && rootPath.ends_with('/')) rootPath.pop_back();
    marksSystemFolders = marks.value_or(rootPath == "/");
    nameStart.push(0);
    foldedStart.push(0);
}

void FindIndexStorage::reserveColumns(std::size_t bytesEach) {
    visitColumns(
        [&](auto column) { (this->*column.values).reserveMore(bytesEach / column.width); });
}

bool FindIndexStorage::isSystemTopLevelName(std::string_view name) {
    return std::ranges::find(systemTopLevelNames, name) != systemTopLevelNames.end();
}

bool FindIndexStorage::hasRoomFor(const FindDirectoryListing& listing) const {
    if (listing.count() == 0) return true;
    constexpr std::uint64_t maxNumber = 0xFFFFFFFF;
    // Folding makes at most three bytes of one: a byte that is no text becomes U+FFFD.
    const std::uint64_t bytes = allNames(listing).size();
    return std::uint64_t{count()} + listing.count() < maxNumber &&
           names.size() + bytes <= maxNumber && foldedNames.size() + bytes * 3 <= maxNumber;
}

FindIndexStorage::Entry FindIndexStorage::appendRoot(std::string_view path,
                                                     std::uint32_t modified) {
    require(count() == 0, "an index has one root");
    const std::string_view called = path::lastComponent(path);
    names.append(called);
    nameStart.push(static_cast<std::uint32_t>(names.size()));
    parent.push(none);
    size32.push(0);
    mtime.push(modified);
    flags.push(
        static_cast<std::uint8_t>(findflag::folder | (isASCII(called) ? 0 : findflag::notASCII)));
    kind.push(static_cast<std::uint8_t>(FindCategory::folder));
    depth.push(0);
    firstChild.push(none);
    extendFolded();
    return 0;
}

FindIndexStorage::Entry FindIndexStorage::appendBlock(Entry folder,
                                                      const FindDirectoryListing& listing) {
    require(folder < count() && firstChild[folder] == none, "a folder has one block");
    const Entry first = appendEntries(folder, listing);
    firstChild[folder] = first;
    flags[folder] &= static_cast<std::uint8_t>(~findflag::unread);
    return first;
}

FindIndexStorage::Entry FindIndexStorage::appendEntries(Entry folder,
                                                        const FindDirectoryListing& listing) {
    const std::size_t more = listing.count();
    if (more == 0) return none;
    require(hasRoomFor(listing), "an index has no room for so many names");
    const Entry first = count();
    const std::uint8_t inherited = flags[folder] & (findflag::hidden | findflag::system);
    const bool marksSystem = marksSystemFolders && folder == 0;
    const bool arePlain = isASCII(allNames(listing));
    const auto level = static_cast<std::uint8_t>(std::min(depth[folder] + 1, int{maxDepth}));

    const auto base = static_cast<std::uint32_t>(names.size()) - listing.starts[0];
    names.append(allNames(listing));
    parent.append(more, folder);
    mtime.append(listing.mtimes.span().first(more));
    depth.append(more, level);
    firstChild.append(more, none);
    nameStart.reserveMore(more);
    size32.reserveMore(more);
    flags.reserveMore(more);
    kind.reserveMore(more);
    for (std::size_t i = 0; i < more; ++i) {
        const std::string_view called = listing.name(i);
        const bool isFolder = listing.types[i] == FindObjectType::directory;
        const bool isHidden = called.starts_with('.') ||
                              (listing.bsdFlags[i] & FindDirectoryListing::hiddenFlag) != 0;
        unsigned set = inherited;
        if (isHidden) set |= findflag::hidden;
        if (!arePlain && !isASCII(called)) set |= findflag::notASCII;
        if (listing.types[i] == FindObjectType::symlink) set |= findflag::symlink;
        const bool isProgram = (listing.bsdFlags[i] & FindDirectoryListing::programFlag) != 0;
        if (isProgram && listing.types[i] == FindObjectType::file) set |= findflag::program;
        if (isFolder) {
            set |= findflag::folder;
            if (marksSystem && isSystemTopLevelName(called)) set |= findflag::system;
            if (FindExtensions::isPackage(called)) set |= findflag::package;
        }
        const unsigned category = static_cast<unsigned>(FindExtensions::category(called, isFolder));

        const std::uint64_t bytes = isFolder ? 0 : listing.sizes[i];
        if (bytes >= bigSize) bigSizes[first + static_cast<Entry>(i)] = bytes;
        nameStart.push(base + listing.starts[i + 1]);
        size32.push(static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, bigSize)));
        flags.push(static_cast<std::uint8_t>(set));
        kind.push(static_cast<std::uint8_t>(category | (isHidden ? findkind::hiddenItself : 0U)));
    }
    kind[kind.size() - 1] |= findkind::lastOfBlock;
    extendFolded();
    return first;
}

} // namespace tidyro
