#include "StorageEngine/DiskTree/DiskTreeBatch.h"

#include "Base/Saturating.h"

namespace tidyro {

namespace {

DiskTreeFlags flagsOf(platform::EntryTraits traits, std::optional<ContentKind> context) {
    using platform::EntryTrait;
    DiskTreeFlags flags;
    if (traits.has(EntryTrait::hidden)) flags.insert(DiskTreeFlags::hidden);
    if (traits.has(EntryTrait::dataless)) flags.insert(DiskTreeFlags::dataless);
    if (traits.has(EntryTrait::compressed)) flags.insert(DiskTreeFlags::compressed);
    if (traits.has(EntryTrait::mountPoint)) flags.insert(DiskTreeFlags::mountPoint);
    if (traits.has(EntryTrait::systemOwned) || context == ContentKind::system) {
        flags.insert(DiskTreeFlags::systemOwned);
    }
    return flags;
}

/// Copies a batch's column behind the tree's. A column that one huge folder blew up goes back to
/// the system at once: two full sets of columns must not stand side by side.
template <class T>
void moveColumn(GrowingArray<T>& target, GrowingArray<T>& column) {
    constexpr std::size_t keptBetweenFolders = 1'048'576;
    target.append(column.span());
    column.clear();
    if (column.capacityBytes() > keptBetweenFolders) column.release();
}

} // namespace

void DiskTreeBatch::clear() {
    names_.clear();
    nameLengths_.clear();
    logical_.clear();
    allocated_.clear();
    modified_.clear();
    accessed_.clear();
    kinds_.clear();
    flags_.clear();
    descents_.clear();
    sharing_.clear();
    undated_.clear();
    folders_ = logicalTotal_ = allocatedTotal_ = 0;
}

void DiskTreeBatch::add(const platform::FolderEntry& entry, const Inherited& inherited) {
    const PlaceTree::Branch* places =
        inherited.places == nullptr ? nullptr : inherited.places->child(entry.name);
    if (places != nullptr && places->mark == PlaceTree::Mark::skipped) return;
    if (entry.type == platform::EntryType::folder) {
        addFolder(entry, inherited, places);
    } else {
        addFile(entry, inherited);
    }
}

void DiskTreeBatch::addFolder(const platform::FolderEntry& entry, const Inherited& inherited,
                              const PlaceTree::Branch* places) {
    const auto context =
        contentKindContext(entry.name, inherited.context,
                           inherited.isStartupDiskRoot && isSystemTopLevelFolder(entry.name));
    DiskTreeFlags flags = flagsOf(entry.traits, context);
    flags.insert(DiskTreeFlags::directory);
    if (isPackageFolder(entry.name)) flags.insert(DiskTreeFlags::package);

    if (places != nullptr && places->mark == PlaceTree::Mark::mountPoint) {
        flags.insert(DiskTreeFlags::mountPoint);
    }
    const bool contentsSkipped =
        places != nullptr && places->mark == PlaceTree::Mark::contentsSkipped;
    // Listing a folder whose contents are in the cloud would bring them onto the disk.
    const bool isElsewhere =
        flags.contains(DiskTreeFlags::mountPoint) || flags.contains(DiskTreeFlags::dataless);
    if (inherited.mayDescend && !contentsSkipped && !isElsewhere) {
        descents_.push_back({.slot = static_cast<FolderWalk::Number>(count()), .places = places});
    } else if (!entry.hasFacts && !isElsewhere) {
        undated_.emplace_back(count(), entry.name);
    }
    ++folders_;
    push(entry, context.value_or(ContentKind::other), flags);
}

void DiskTreeBatch::addFile(const platform::FolderEntry& entry, const Inherited& inherited) {
    DiskTreeFlags flags = flagsOf(entry.traits, inherited.context);
    if (entry.type == platform::EntryType::link) flags.insert(DiskTreeFlags::symlink);
    if (entry.cloneFamily != 0) flags.insert(DiskTreeFlags::sharedStorage);
    if (entry.linkCount > 1 || entry.cloneFamily != 0) {
        SharedFiles::Sharing sharing{.node = static_cast<NodeNumber>(count())};
        if (entry.linkCount > 1) sharing.file = entry.identity;
        if (entry.cloneFamily != 0) {
            // Without a device: the subvolumes of one file system share blocks as well.
            sharing.family = {.device = 0, .inode = entry.cloneFamily};
            sharing.sharedBytes = entry.cloneSharedBytes;
        }
        sharing_.push_back(sharing);
    }
    push(entry, inherited.context ? *inherited.context : contentKindForFile(entry.name), flags);
    if (flags.contains(DiskTreeFlags::mountPoint)) {
        logical_[count() - 1] = allocated_[count() - 1] = 0; // its bytes lie on another volume
    }
    logicalTotal_ = saturatingAdd(logicalTotal_, logical_[count() - 1]);
    allocatedTotal_ = saturatingAdd(allocatedTotal_, allocated_[count() - 1]);
}

void DiskTreeBatch::push(const platform::FolderEntry& entry, ContentKind kind,
                         DiskTreeFlags flags) {
    names_.append({entry.name.data(), entry.name.size()});
    nameLengths_.push(static_cast<std::uint16_t>(entry.name.size()));
    logical_.push(entry.logicalSize);
    allocated_.push(entry.allocatedSize);
    modified_.push(entry.modified);
    accessed_.push(entry.accessed);
    kinds_.push(kind);
    flags_.push(flags);
}

void DiskTreeBatch::dateUnreadFolders(const platform::FolderDescriptor& folder) {
    for (const auto& [slot, name] : undated_) {
        if (const auto facts = folder.facts(name.c_str())) {
            modified_[slot] = facts->modified;
            accessed_[slot] = facts->accessed;
        }
    }
}

void DiskTreeBatch::moveInto(DiskTreeColumns& columns, NodeNumber parent) {
    const std::size_t added = count();
    columns.parent.append(added, parent);
    columns.childStart.append(added, 0);
    columns.childCount.append(added, 0);
    columns.nameStart.reserveMore(added);
    auto start = static_cast<std::uint32_t>(columns.nameBytes.size());
    for (const std::uint16_t length : nameLengths_) {
        columns.nameStart.push(start);
        start += length;
    }
    moveColumn(columns.nameBytes, names_);
    moveColumn(columns.nameLength, nameLengths_);
    moveColumn(columns.logicalSize, logical_);
    moveColumn(columns.allocatedSize, allocated_);
    moveColumn(columns.modified, modified_);
    moveColumn(columns.accessed, accessed_);
    moveColumn(columns.kind, kinds_);
    moveColumn(columns.flags, flags_);
}

} // namespace tidyro
