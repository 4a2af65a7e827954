#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tidyro {

/// The operating systems that texts are written for.
enum class OperatingSystem : std::uint8_t { macOS, linux_ };

/// Each text for people that names its system, or what only one system has: the Mac, the Finder,
/// System Settings, a command. Texts that are true on both stay with their owners.
///
/// A new one gets a case here and a row in `SystemTexts.cpp`, in the same order, with the words of
/// both systems beside each other.
enum class SystemText : std::uint8_t {
    movedToTrash,     ///< how an item that went to the Trash could be got back
    folderWasNotRead, ///< the one at {path}, because of {reason}
    belongsToSystem,  ///< why a file on a system volume stays
    // Why a picked item stays: it is locked or a mount point itself, or holds one that is.
    itemIsLocked,
    somethingIsLocked,
    otherDiskHere,
    otherDiskInside,
    appIsInstalledOtherwise, ///< why an application that Tidyro did not install stays
    isLockedForTrash,  ///< why an item cannot be moved to the Trash, as the middle of a sentence
    approvalOutOfTime, ///< why an approval of a cleanup does not count
    toolHomeNotFound,  ///< the folder of an AI tool
};

/// The words of a system for a text. Names in braces are filled in with `fmt::format`:
///
///     fmt::format(fmt::runtime(systemText(SystemText::folderWasNotRead, OperatingSystem::linux_)),
///                 fmt::arg("path", path), fmt::arg("reason", reason))
///
/// Programs take `platform::systemText`, which knows the system that they run on.
[[nodiscard]] std::string_view systemText(SystemText text, OperatingSystem system);

struct SystemTextRow {
    SystemText text;
    std::string_view onMacOS;
    std::string_view onLinux;
};
/// The whole table, in the order of the cases.
[[nodiscard]] std::span<const SystemTextRow> systemTexts();

} // namespace tidyro
