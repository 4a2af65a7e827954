#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

/// Why an item that a person picked stays where it is. The order is that of the checks: those that
/// need the path alone come first, those that look through a whole folder last. The first reason
/// that applies is told.
enum class DiskItemRefusal : std::uint8_t {
    // Because nothing is known of the machine or the home.
    nothingKnown,
    desktopListUnreadable,
    homeUnreadable,
    // By the written and the real path alone.
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
    mountPointItself,
    otherVolume,
    closedParent,
    locked,
    closedFolder,
    unreadableFolder,
    backup,
    liveDatabase,
    openByProcess,
    growing,
    otherPlace,
    ownersStore,
    builtHere,
    changedSinceMeasured,
    // By what a folder holds. Here the reason that is met first is told.
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

/// One or two plain sentences for people: what is the matter and, where it helps, what to do. They
/// are in the words of the running system.
[[nodiscard]] std::string_view explanation(DiskItemRefusal refusal);

constexpr RawValueTable<DiskItemRefusal, 49> rawValues(RawValueTag<DiskItemRefusal>) {
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
              {mountPointItself, "mountPointItself"},
              {otherVolume, "otherVolume"},
              {closedParent, "closedParent"},
              {locked, "locked"},
              {closedFolder, "closedFolder"},
              {unreadableFolder, "unreadableFolder"},
              {backup, "backup"},
              {liveDatabase, "liveDatabase"},
              {openByProcess, "openByProcess"},
              {growing, "growing"},
              {otherPlace, "otherPlace"},
              {ownersStore, "ownersStore"},
              {builtHere, "builtHere"},
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
