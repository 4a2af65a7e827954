#include "StorageEngine/DiskTree/SharedFiles.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace tidyro {

namespace {

using Flags = DiskTreeFlags;

constexpr platform::ItemIdentity none{};

struct OnTheWay {
    NodeNumber node;
    bool isLeaf = true; ///< nothing was climbed from yet
};

std::size_t at(NodeNumber node) { return static_cast<std::size_t>(node); }

std::size_t depthOf(const DiskTreeColumns& columns, NodeNumber node) {
    std::size_t depth = 0;
    for (; node > 0; node = columns.parent[at(node)]) ++depth;
    return depth;
}

void climb(const DiskTreeColumns& columns, OnTheWay& way) {
    way = {.node = columns.parent[at(way.node)], .isLeaf = false};
}

/// Whether the path of a file comes before that of another one, byte by byte. What lies in the
/// root's folder `last` comes after all else.
bool isPathBefore(const DiskTreeColumns& columns, std::string_view last, NodeNumber one,
                  NodeNumber other) {
    OnTheWay a{one};
    OnTheWay b{other};
    std::size_t depthA = depthOf(columns, one);
    std::size_t depthB = depthOf(columns, other);
    for (; depthA > depthB; --depthA) climb(columns, a);
    for (; depthB > depthA; --depthB) climb(columns, b);
    while (columns.parent[at(a.node)] != columns.parent[at(b.node)]) {
        climb(columns, a);
        climb(columns, b);
    }
    // From here on the paths differ. A folder's name goes on with "/".
    const auto nameOf = [&](const OnTheWay& way) {
        return std::string_view(columns.nameBytes.data() + columns.nameStart[at(way.node)],
                                columns.nameLength[at(way.node)]);
    };
    const std::string_view nameA = nameOf(a);
    const std::string_view nameB = nameOf(b);
    const bool isInRoot = !last.empty() && columns.parent[at(a.node)] == 0;
    if (isInRoot && (nameA == last || nameB == last)) return nameB == last;
    const std::size_t common = std::min(nameA.size(), nameB.size());
    const int order = nameA.substr(0, common).compare(nameB.substr(0, common));
    if (order != 0 || nameA.size() == nameB.size()) return order < 0;
    const auto next = [&](std::string_view name, const OnTheWay& way) -> int {
        if (name.size() > common) return static_cast<unsigned char>(name[common]);
        return way.isLeaf ? -1 : '/';
    };
    return next(nameA, a) < next(nameB, b);
}

/// A file that shrank between two of its names holds less than it shared.
void take(std::uint64_t& from, std::uint64_t bytes, std::int64_t& change) {
    bytes = std::min(from, bytes);
    from -= bytes;
    change -= static_cast<std::int64_t>(bytes);
}

} // namespace

SharedFiles::Change SharedFiles::add(DiskTreeColumns& columns, const Sharing& sharing) {
    Change change;
    if (sharing.file != none && isFurtherName(columns, sharing, change)) return change;
    if (sharing.family != none) settleClone(columns, sharing, change);
    return change;
}

/// Of two names the smaller path keeps, or takes over, what the file holds at that time.
bool SharedFiles::isFurtherName(DiskTreeColumns& columns, const Sharing& sharing, Change& change) {
    const auto [carrier, isFirst] = names_.findOrInsert(sharing.file, sharing.node);
    if (isFirst) return false;
    const std::size_t node = at(sharing.node);
    take(columns.logicalSize[node], columns.logicalSize[node], change.logical);
    take(columns.allocatedSize[node], columns.allocatedSize[node], change.allocated);
    if (!isPathBefore(columns, carryingLast_, sharing.node, carrier)) {
        columns.flags[node].insert(Flags::extraHardLink);
        return true;
    }
    const std::size_t former = at(carrier);
    std::swap(columns.logicalSize[node], columns.logicalSize[former]);
    std::swap(columns.allocatedSize[node], columns.allocatedSize[former]);
    if (columns.flags[former].contains(Flags::extraClone)) {
        columns.flags[former].erase(Flags::extraClone);
        columns.flags[node].insert(Flags::extraClone);
    }
    columns.flags[former].insert(Flags::extraHardLink);
    if (sharing.family != none) {
        CloneCarrier& clone = clones_.findOrInsert(sharing.family, {.node = carrier}).first;
        if (clone.node == carrier) clone.node = sharing.node;
    }
    carrier = sharing.node;
    return false;
}

/// Of two clones the smaller path keeps, or takes over, the shared blocks.
void SharedFiles::settleClone(DiskTreeColumns& columns, const Sharing& sharing, Change& change) {
    const auto [carrier, isFirst] = clones_.findOrInsert(
        sharing.family, {.node = sharing.node, .sharedBytes = sharing.sharedBytes});
    if (isFirst || carrier.node == sharing.node) return;
    const std::size_t node = at(sharing.node);
    const std::size_t former = at(carrier.node);
    Flags& flags = columns.flags[node];
    const bool hasGivenUp = flags.contains(Flags::extraClone); // by another of its names
    if (!isPathBefore(columns, carryingLast_, sharing.node, carrier.node)) {
        if (!hasGivenUp) take(columns.allocatedSize[node], sharing.sharedBytes, change.allocated);
        flags.insert(Flags::extraClone);
        return;
    }
    if (hasGivenUp) {
        columns.allocatedSize[node] += sharing.sharedBytes;
        change.allocated += static_cast<std::int64_t>(sharing.sharedBytes);
        flags.erase(Flags::extraClone);
    }
    take(columns.allocatedSize[former], carrier.sharedBytes, change.allocated);
    columns.flags[former].insert(Flags::extraClone);
    carrier = {.node = sharing.node, .sharedBytes = sharing.sharedBytes};
}

template <class Carrier>
std::pair<Carrier&, bool>
SharedFiles::Carriers<Carrier>::findOrInsert(const platform::ItemIdentity& key, Carrier first) {
    if ((count_ + 1) * 4 > slots_.size() * 3) grow();
    Slot& slot = slotFor(key);
    const bool isNew = slot.key == none;
    if (isNew) {
        slot = {.key = key, .carrier = first};
        ++count_;
    }
    return {slot.carrier, isNew};
}

template <class Carrier>
auto SharedFiles::Carriers<Carrier>::slotFor(const platform::ItemIdentity& key) -> Slot& {
    const std::size_t mask = slots_.size() - 1;
    std::uint64_t hash = (key.inode ^ key.device << 40) * 0x9E3779B97F4A7C15U;
    hash ^= hash >> 32;
    std::size_t place = static_cast<std::size_t>(hash) & mask;
    while (slots_[place].key != none && slots_[place].key != key) place = (place + 1) & mask;
    return slots_[place];
}

template <class Carrier>
void SharedFiles::Carriers<Carrier>::grow() {
    GrowingArray<Slot> old = std::move(slots_);
    slots_ = {};
    slots_.resize(old.empty() ? 1'024 : old.size() * 2);
    for (const Slot& slot : old) {
        if (slot.key != none) slotFor(slot.key) = slot;
    }
}

} // namespace tidyro
