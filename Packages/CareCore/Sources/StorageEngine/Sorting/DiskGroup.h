#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"
#include "CareDomain/CleanupCategory.h"

namespace tidyro {

/// The groups into which Cleanup sorts the items of a disk. Their order is fixed: an item belongs
/// to the first group that takes it, and results are listed in this order.
enum class DiskGroup : std::uint8_t {
    trash,
    projectFolders,
    appleDeveloper,
    packageCaches,
    applicationCaches,
    sandboxedCaches,
    logs,
    oldDownloads,
    installers,
    largeFiles,
};

constexpr std::size_t diskGroupCount = 10;

constexpr RawValueTable<DiskGroup, diskGroupCount> rawValues(RawValueTag<DiskGroup>) {
    return {{{{DiskGroup::trash, "trash"},
              {DiskGroup::projectFolders, "projectFolders"},
              {DiskGroup::appleDeveloper, "appleDeveloper"},
              {DiskGroup::packageCaches, "packageCaches"},
              {DiskGroup::applicationCaches, "applicationCaches"},
              {DiskGroup::sandboxedCaches, "sandboxedCaches"},
              {DiskGroup::logs, "logs"},
              {DiskGroup::oldDownloads, "oldDownloads"},
              {DiskGroup::installers, "installers"},
              {DiskGroup::largeFiles, "largeFiles"}}}};
}

/// What people are shown.
[[nodiscard]] constexpr std::string_view title(DiskGroup group) {
    switch (group) {
    case DiskGroup::trash: return "Trash";
    case DiskGroup::projectFolders: return "Generated project folders";
    case DiskGroup::appleDeveloper: return "Xcode and simulators";
    case DiskGroup::packageCaches: return "Package manager caches";
    case DiskGroup::applicationCaches: return "Application caches";
    case DiskGroup::sandboxedCaches: return "Sandboxed app caches";
    case DiskGroup::logs: return "Logs";
    case DiskGroup::oldDownloads: return "Downloads not used for 90 days";
    case DiskGroup::installers: return "Installers and disk images";
    case DiskGroup::largeFiles: return "Large files not used for a year";
    }
    return {};
}

/// What a plan calls the items of a group.
[[nodiscard]] constexpr CleanupCategory cleanupCategory(DiskGroup group) {
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
