#pragma once

#include <cstdint>
#include <vector>

#include "Base/FileURL.h"
#include "Base/GrowingArray.h"
#include "Base/Timestamp.h"
#include "StorageEngine/DiskTree/ContentKind.h"

namespace tidyro {

/// An item of a tree; the root is 0, a negative number is never a node.
using NodeNumber = std::int32_t;

/// A set of facts about one node.
class DiskTreeFlags {
  public:
    enum Flag : std::uint16_t {
        directory = 0x0001,     ///< a folder (packages too)
        package = 0x0002,       ///< a folder that people see as one file
        symlink = 0x0004,       ///< a symbolic link, never followed
        denied = 0x0008,        ///< a folder whose contents could not be read
        hidden = 0x0010,        ///< hidden from the user
        dataless = 0x0020,      ///< a placeholder; the data is in the cloud, not on this disk
        compressed = 0x0040,    ///< stored compressed by the file system
        extraHardLink = 0x0080, ///< a further name of a file already counted; holds no bytes
        mountPoint = 0x0100,    ///< another volume is mounted here; not descended into
        systemOwned = 0x0200,   ///< belongs to the operating system
        movedAway = 0x0400,     ///< gone since the scan; see DiskTree::removing
        sharedStorage = 0x0800, ///< shares its blocks with another file
        extraClone = 0x1000,    ///< a further clone; holds the blocks that are its own alone
    };

    constexpr DiskTreeFlags() = default;
    // A flag is a set of one.
    constexpr DiskTreeFlags(Flag flag) noexcept : raw_(flag) {}
    [[nodiscard]] static constexpr DiskTreeFlags fromRawValue(std::uint16_t raw) noexcept {
        DiskTreeFlags flags;
        flags.raw_ = raw;
        return flags;
    }
    [[nodiscard]] constexpr std::uint16_t rawValue() const noexcept { return raw_; }
    [[nodiscard]] constexpr bool contains(Flag flag) const noexcept { return (raw_ & flag) != 0; }
    constexpr void insert(Flag flag) noexcept { raw_ = static_cast<std::uint16_t>(raw_ | flag); }
    constexpr void erase(Flag flag) noexcept { raw_ = static_cast<std::uint16_t>(raw_ & ~flag); }

    bool operator==(const DiskTreeFlags&) const = default;

  private:
    std::uint16_t raw_ = 0;
};

/// The stored form of a disk tree: one column a fact, one element a node, then the facts of the
/// scan. See DiskTree for what they mean together.
struct DiskTreeColumns {
    GrowingArray<NodeNumber> parent;           ///< negative for the root
    GrowingArray<NodeNumber> childStart;       ///< the first child; children are consecutive
    GrowingArray<std::int32_t> childCount;     ///< 0 for files
    GrowingArray<std::uint32_t> nameStart;     ///< offset into `nameBytes`
    GrowingArray<std::uint16_t> nameLength;    ///< bytes
    GrowingArray<char> nameBytes;              ///< all names without separators, as on disk
    GrowingArray<std::uint64_t> logicalSize;   ///< bytes of data; folders: the subtree's total
    GrowingArray<std::uint64_t> allocatedSize; ///< bytes on disk; folders: the subtree's total
    GrowingArray<std::uint32_t> modified;      ///< whole seconds since 1970-01-01 UTC
    GrowingArray<std::uint32_t> accessed;      ///< whole seconds since 1970-01-01 UTC
    GrowingArray<ContentKind> kind;
    GrowingArray<DiskTreeFlags> flags;
    GrowingArray<std::uint32_t> fileCount;   ///< nodes of the subtree that are no folders
    GrowingArray<std::uint32_t> folderCount; ///< folders of the subtree, itself not counted

    FileURL rootURL;
    double duration = 0; ///< seconds
    Timestamp finishedAt;
    std::int64_t deniedCount = 0;
};

/// What one node costs beside its name: the sum of the columns' elements.
constexpr std::size_t bytesPerNode = 53;
static_assert(5 * 4 + 2 + 2 * 8 + 2 * 4 + sizeof(ContentKind) + sizeof(DiskTreeFlags) + 4 ==
              bytesPerNode);

/// Adds up the sizes and counts of the folders from their contents, in one pass from the last node
/// to the first. Every parent must stand before its children. The columns of counts are made anew.
void totalSubtrees(DiskTreeColumns& columns);

/// Takes out nodes and closes the gaps, so that children stay consecutive. The nodes are ascending,
/// have no children, and the root is not among them. Call it before `totalSubtrees`.
void removeNodes(DiskTreeColumns& columns, const std::vector<NodeNumber>& nodes);

} // namespace tidyro
