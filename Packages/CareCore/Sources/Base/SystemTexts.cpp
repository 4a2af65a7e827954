#include "Base/SystemTexts.h"

#include <array>
#include <cstddef>

#include "Base/Fault.h"

namespace tidyro {

namespace {

using enum SystemText;

constexpr auto rows = std::to_array<SystemTextRow>({
    {movedToTrash, //
     "Moved to the macOS Trash, where you can put it back.",
     "Moved to the Trash, where you can put it back."},
    {folderWasNotRead, //
     "macOS would not let Tidyro read {path} ({reason}).",
     "The system would not let Tidyro read {path} ({reason})."},
    {belongsToSystem, //
     "Part of macOS. It starts up and updates the Mac from here.",
     "Part of the system, which starts up and updates from here."},
    {itemIsLocked, //
     "This, or the folder that it lies in, is locked. Unlock it first.",
     "This, or the folder that it lies in, is locked against changes. Unlock it first "
     "(chattr -i -a)."},
    {somethingIsLocked, //
     "Something inside this folder is locked. Unlock it first.",
     "Something inside this folder is locked against changes. Unlock it first (chattr -i -a)."},
    {otherDiskHere, //
     "Another disk appears here. Eject it instead.",
     "Something else is mounted here. Unmount it instead."},
    {otherDiskInside, //
     "Another disk appears inside this folder. Eject it first.",
     "Something else is mounted inside this folder. Unmount it first."},
    {appIsInstalledOtherwise, //
     "This application belongs to macOS, or to an installer of its own. Remove it with that.",
     "Applications belong to the package manager that installed them (apt, dnf, pacman, Flatpak, "
     "Snap). Remove this one with it, so that nothing of it is left behind."},
    {isLockedForTrash, //
     "it is locked. Unlock it in Finder's Get Info first",
     "it, or its folder, is locked against changes. Unlock it first (chattr -i -a)"},
    {approvalOutOfTime, //
     "The confirmation for this list is no longer valid. It may have expired, or your Mac's clock "
     "changed. Nothing was touched. Review the list and confirm it again.",
     "The confirmation for this list is no longer valid. It may have expired, or the computer's "
     "clock changed. Nothing was touched. Review the list and confirm it again."},
    {toolHomeNotFound, //
     "Not found on this Mac.", "Not found on this computer."},
});

consteval bool areInOrder() {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (static_cast<std::size_t>(rows[i].text) != i) return false;
    }
    return true;
}
static_assert(areInOrder(), "a row is missing or out of order");

} // namespace

std::span<const SystemTextRow> systemTexts() { return rows; }

std::string_view systemText(SystemText text, OperatingSystem system) {
    const auto index = static_cast<std::size_t>(text);
    require(index < rows.size(), "a text of the system has no row");
    const SystemTextRow& row = rows[index];
    return system == OperatingSystem::macOS ? row.onMacOS : row.onLinux;
}

} // namespace tidyro
