#include "Rooms/Find/Services/Index/FindDirectoryListing.h"

namespace tidyro {

void FindDirectoryListing::append(const Entry& entry) {
    if (starts.empty()) starts.push(0);
    names.append(entry.name);
    starts.push(static_cast<std::uint32_t>(names.size()));
    types.push(entry.type);
    sizes.push(entry.size);
    mtimes.push(entry.mtime);
    bsdFlags.push(entry.bsdFlags);
    mountPoints.push(entry.isMountPoint);
}

void FindDirectoryListing::clear() {
    names.clear();
    starts.clear();
    types.clear();
    sizes.clear();
    mtimes.clear();
    bsdFlags.clear();
    mountPoints.clear();
}

} // namespace tidyro
