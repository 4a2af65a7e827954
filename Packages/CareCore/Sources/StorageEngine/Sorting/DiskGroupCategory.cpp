#include "StorageEngine/Sorting/DiskGroupCategory.h"

namespace tidyro {

CleanupCategory categoryOf(DiskGroup group) {
    switch (group) {
    case DiskGroup::projectFolders: return CleanupCategory::generatedWork;
    case DiskGroup::appleDeveloper:
    case DiskGroup::packageCaches:
    case DiskGroup::applicationCaches:
    case DiskGroup::sandboxedCaches: return CleanupCategory::regenerableCache;
    case DiskGroup::logs: return CleanupCategory::expiredLog;
    case DiskGroup::oldDownloads:
    case DiskGroup::installers: return CleanupCategory::download;
    case DiskGroup::largeFiles: return CleanupCategory::largeFile;
    case DiskGroup::trash: break;
    }
    return CleanupCategory::unknown;
}

} // namespace tidyro
