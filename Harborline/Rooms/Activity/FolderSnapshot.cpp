#include "Rooms/Activity/FolderSnapshot.h"

#include "Base/UnicodeText.h"
#include "Platform/Machine/RandomUUID.h"

namespace tidyro {

FolderSnapshot FolderSnapshot::take(const DiskTree& tree, const Options& options) {
    const NodeNumber top = options.under;
    const std::string name = tree.url(top).path() == "/" ? "/" : tree.name(top);
    FolderSnapshot snapshot{.id = platform::randomUUID(),
                            .title = options.title.empty() ? name : options.title,
                            .takenAt = tree.finishedAt(),
                            .onDisk = options.onDisk,
                            .folders = {}};
    const auto keep = [&](NodeNumber folder) {
        snapshot.folders.push_back({.url = tree.url(folder),
                                    .byteCount = tree.size(folder, {.onDisk = options.onDisk}),
                                    .fileCount = tree.fileCount(folder)});
    };
    keep(top);
    if (options.maximumEntries <= 1) return snapshot;
    std::size_t pathBytes = 0;
    // A folder is at least as large as any inside it and ranks before it, so cutting the list off
    // at any place keeps the folders above whatever is kept.
    for (const NodeNumber folder :
         tree.largestFolders({.under = top,
                              .limit = static_cast<std::int64_t>(options.maximumEntries - 1),
                              .onDisk = options.onDisk})) {
        if (tree.size(folder, {.onDisk = options.onDisk}) < options.minimumBytes) break;
        pathBytes += tree.path(folder).size();
        if (pathBytes > options.maximumPathBytes) break;
        keep(folder);
    }
    return snapshot;
}

} // namespace tidyro
