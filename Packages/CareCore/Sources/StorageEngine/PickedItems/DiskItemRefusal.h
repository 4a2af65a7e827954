#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

/// Why an item that a person picked stays where it is. The order is that of the checks, from what
/// a path alone tells to what takes a look through a whole folder: the first that applies is told.
enum class DiskItemRefusal : std::uint8_t {
    // By what is known of the machine and the home at all.
    nothingKnown,
    desktopListUnreadable,
    homeUnreadable,
    // By the paths alone, as they are written and as they really are.
    homeFolder,
    openedFolder,
    outsideChosenFolders,
    inTrash,
    standardFolder,
    sharedFolder,
    inCloudFolder,
    holdsCloudFolder,
    systemPlace,
    protectedPlace,
    holdsProtectedPlace,
    insidePackage,
    repositoryData,
    activeApplication,
    // By the item itself and the folder that it lies in.
    homeElsewhere,
    vanished,
    unreadable,
    link,
    specialFile,
    cloudPlaceholder,
    otherOwner,
    mountPoint,
    otherVolume,
    closedSurroundings,
    locked,
    closedFolder,
    unreadableFolder,
    backup,
    liveDatabase,
    openByProcess,
    growing,
    otherPlace,
    changedSinceMeasured,
    // By what a folder holds; here what is met first is told.
    mountPointInside,
    otherOwnerInside,
    lockedInside,
    specialFileInside,
    placeholderInside,
    unreadableInside,
    tooDeepInside,
    backupInside,
    databaseInside,
    inUseLately,
    cancelled,
};

/// One plain sentence or two for people: what is the matter and, where it helps, what to do.
[[nodiscard]] std::string_view explanation(DiskItemRefusal refusal);

constexpr RawValueTable<DiskItemRefusal, 47> rawValues(RawValueTag<DiskItemRefusal>) {
    using enum DiskItemRefusal;
    return {{{{nothingKnown, "nothingKnown"},
              {desktopListUnreadable, "desktopListUnreadable"},
              {homeUnreadable, "homeUnreadable"},
              {homeFolder, "homeFolder"},
              {openedFolder, "openedFolder"},
              {outsideChosenFolders, "outsideChosenFolders"},
              {inTrash, "inTrash"},
              {standardFolder, "standardFolder"},
              {sharedFolder, "sharedFolder"},
              {inCloudFolder, "inCloudFolder"},
              {holdsCloudFolder, "holdsCloudFolder"},
              {systemPlace, "systemPlace"},
              {protectedPlace, "protectedPlace"},
              {holdsProtectedPlace, "holdsProtectedPlace"},
              {insidePackage, "insidePackage"},
              {repositoryData, "repositoryData"},
              {activeApplication, "activeApplication"},
              {homeElsewhere, "homeElsewhere"},
              {vanished, "vanished"},
              {unreadable, "unreadable"},
              {link, "link"},
              {specialFile, "specialFile"},
              {cloudPlaceholder, "cloudPlaceholder"},
              {otherOwner, "otherOwner"},
              {mountPoint, "mountPoint"},
              {otherVolume, "otherVolume"},
              {closedSurroundings, "closedSurroundings"},
              {locked, "locked"},
              {closedFolder, "closedFolder"},
              {unreadableFolder, "unreadableFolder"},
              {backup, "backup"},
              {liveDatabase, "liveDatabase"},
              {openByProcess, "openByProcess"},
              {growing, "growing"},
              {otherPlace, "otherPlace"},
              {changedSinceMeasured, "changedSinceMeasured"},
              {mountPointInside, "mountPointInside"},
              {otherOwnerInside, "otherOwnerInside"},
              {lockedInside, "lockedInside"},
              {specialFileInside, "specialFileInside"},
              {placeholderInside, "placeholderInside"},
              {unreadableInside, "unreadableInside"},
              {tooDeepInside, "tooDeepInside"},
              {backupInside, "backupInside"},
              {databaseInside, "databaseInside"},
              {inUseLately, "inUseLately"},
              {cancelled, "cancelled"}}}};
}

} // namespace tidyro
