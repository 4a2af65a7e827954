#include "StorageEngine/DiskTree/DiskTreeColumns.h"

#include "Base/Saturating.h"

namespace tidyro {

void totalSubtrees(DiskTreeColumns& columns) {
    const std::size_t count = columns.parent.size();
    columns.fileCount.clear();
    columns.folderCount.clear();
    columns.fileCount.append(count, 0);
    columns.folderCount.append(count, 0);
    for (std::size_t node = count; node-- > 1;) {
        const auto parent = static_cast<std::size_t>(columns.parent[node]);
        const bool isFolder = columns.flags[node].contains(DiskTreeFlags::directory);
        columns.logicalSize[parent] =
            saturatingAdd(columns.logicalSize[parent], columns.logicalSize[node]);
        columns.allocatedSize[parent] =
            saturatingAdd(columns.allocatedSize[parent], columns.allocatedSize[node]);
        columns.fileCount[parent] += columns.fileCount[node] + (isFolder ? 0 : 1);
        columns.folderCount[parent] += columns.folderCount[node] + (isFolder ? 1 : 0);
    }
}

namespace {

template <class T>
void closeGaps(GrowingArray<T>& column, const std::vector<NodeNumber>& gone) {
    std::size_t next = 0;
    std::size_t kept = 0;
    for (std::size_t node = 0; node < column.size(); ++node) {
        if (next < gone.size() && static_cast<std::size_t>(gone[next]) == node) {
            ++next;
        } else {
            column[kept++] = column[node];
        }
    }
    column.resize(kept);
}

} // namespace

void removeNodes(DiskTreeColumns& columns, const std::vector<NodeNumber>& nodes) {
    if (nodes.empty()) return;
    // How far each node moves down: the number of nodes that go before it.
    GrowingArray<NodeNumber> shift;
    shift.reserveMore(columns.parent.size() + 1);
    std::size_t before = 0;
    for (std::size_t node = 0; node <= columns.parent.size(); ++node) {
        shift.push(static_cast<NodeNumber>(before));
        if (before < nodes.size() && static_cast<std::size_t>(nodes[before]) == node) ++before;
    }
    for (const NodeNumber node : nodes) {
        --columns
              .childCount[static_cast<std::size_t>(columns.parent[static_cast<std::size_t>(node)])];
    }
    for (std::size_t node = 0; node < columns.parent.size(); ++node) {
        if (columns.parent[node] > 0) {
            columns.parent[node] -= shift[static_cast<std::size_t>(columns.parent[node])];
        }
        columns.childStart[node] -= shift[static_cast<std::size_t>(columns.childStart[node])];
    }
    closeGaps(columns.parent, nodes);
    closeGaps(columns.childStart, nodes);
    closeGaps(columns.childCount, nodes);
    closeGaps(columns.nameStart, nodes); // the names themselves stay: a few bytes nobody points to
    closeGaps(columns.nameLength, nodes);
    closeGaps(columns.logicalSize, nodes);
    closeGaps(columns.allocatedSize, nodes);
    closeGaps(columns.modified, nodes);
    closeGaps(columns.accessed, nodes);
    closeGaps(columns.kind, nodes);
    closeGaps(columns.flags, nodes);
}

} // namespace tidyro
