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
    hardLinks_.clear();
    clones_.clear();
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
    if (entry.linkCount > 1) hardLinks_.push_back({.slot = count(), .key = entry.identity});
    if (entry.cloneFamily != 0) {
        flags.insert(DiskTreeFlags::sharedStorage);
        clones_.push_back({.slot = count(),
                           .key = {.device = entry.identity.device, .inode = entry.cloneFamily}});
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

void DiskTreeBatch::settleShared(SeenSet& hardLinks, SeenSet& clones) {
    for (const Shared& link : hardLinks_) {
        if (hardLinks.insert(link.key)) continue;
        logicalTotal_ = saturatingSubtract(logicalTotal_, logical_[link.slot]);
        allocatedTotal_ = saturatingSubtract(allocatedTotal_, allocated_[link.slot]);
        logical_[link.slot] = allocated_[link.slot] = 0;
        flags_[link.slot].insert(DiskTreeFlags::extraHardLink);
    }
    for (const Shared& clone : clones_) {
        // A further name of a clone is no further clone.
        if (flags_[clone.slot].contains(DiskTreeFlags::extraHardLink)) continue;
        if (clones.insert(clone.key)) continue;
        allocatedTotal_ = saturatingSubtract(allocatedTotal_, allocated_[clone.slot]);
        allocated_[clone.slot] = 0;
        flags_[clone.slot].insert(DiskTreeFlags::extraClone);
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
