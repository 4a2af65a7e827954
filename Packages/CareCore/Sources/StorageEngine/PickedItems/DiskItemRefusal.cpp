#include "StorageEngine/PickedItems/DiskItemRefusal.h"

#include "Base/Fault.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {

std::string_view explanation(DiskItemRefusal refusal) {
    using enum DiskItemRefusal;
    switch (refusal) {
    case nothingKnown:
        return "Tidyro couldn't find out what is in use right now, so it leaves everything alone. "
               "Try again in a moment.";
    case desktopListUnreadable:
        return "Tidyro can't make out the list of your desktop's folders (.config/user-dirs.dirs "
               "in "
               "your home), so it leaves everything alone. Correct that file and try again.";
    case homeUnreadable:
        return "Tidyro can't read your home folder, so it can't tell what in it is kept in step "
               "with a cloud, and leaves everything alone.";
    case homeFolder: return "This is your home folder, or your home folder lies in it.";
    case openedFolder:
        return "This is a folder that you opened in Tidyro, or it holds one. Choose something "
               "inside it.";
    case outsideChosenFolders:
        return "This is neither in your home folder nor in a folder that you opened in Tidyro. "
               "Open the folder that it lies in first.";
    case inTrash: return "This is in the Trash already. Empty the Trash to free its space.";
    case standardFolder:
        return "This is one of the standard folders of your home, or holds one. Choose something "
               "inside it.";
    case sharedFolder:
        return "Many programs keep their settings and data in this folder. Choose something inside "
               "it.";
    case inCloudFolder:
        return "This is kept in step with a cloud, so it would disappear from there and from your "
               "other devices as well.";
    case holdsCloudFolder: return "This holds a folder that is kept in step with a cloud.";
    case systemPlace: return "This belongs to the system, or is shared by everybody who uses it.";
    case protectedPlace:
        return "This lies in a place that Tidyro never touches, such as keys, mail or its own "
               "files.";
    case holdsProtectedPlace: return "This holds a place that Tidyro never touches.";
    case insidePackage:
        return "This is part of an app or library, which would break without it. Choose the whole "
               "app or library instead.";
    case repositoryData:
        return "This is where a project keeps its history. Without it the project can't be tracked "
               "any more.";
    case activeApplication:
        return "This belongs to an app that is running. Quit the app and try again.";
    case homeElsewhere:
        return "This is your home folder, or lies in it, and appears here a second time. Choose it "
               "in your home folder.";
    case vanished: return "This isn't there any more. Scan again.";
    case unreadable: return "Tidyro isn't allowed to look at this.";
    case link: return "This is only a link to something else, and removing it frees nothing.";
    case specialFile:
        return "This is no ordinary file: programs talk to each other or to a device through it.";
    case cloudPlaceholder:
        return "The contents of this are in a cloud and not on this disk, so removing it frees "
               "nothing and may delete them there.";
    case otherOwner: return "This belongs to another user of this computer.";
    case mountPointItself: return platform::systemText(SystemText::otherDiskHere);
    case otherVolume:
        return "This isn't on a disk inside this computer. Open the folder that it lies in first.";
    case closedParent:
        return "The folder that this lies in can't be changed, so nothing can be moved out of it.";
    case locked: return platform::systemText(SystemText::itemIsLocked);
    case closedFolder:
        return "This folder is closed to changes, so it can't be moved. Change its permissions "
               "first.";
    case unreadableFolder:
        return "Tidyro can't read this folder, so it can't tell what would go with it.";
    case backup: return "This is a backup, or part of one.";
    case liveDatabase:
        return "This is a database or part of one. Removing it loses whatever its app stored in "
               "it.";
    case openByProcess: return "A running program has this open. Quit the program and try again.";
    case growing: return "Something is writing to this right now. Try again when it has finished.";
    case otherPlace: return "This isn't in the place that it was found in. Scan again.";
    case ownersStore:
        return "Only the program that keeps this store may shrink it, with a command of its own.";
    case builtHere: return "This was built on this computer, and nobody can download it again.";
    case changedSinceMeasured: return "This changed after it was measured. Scan again.";
    case mountPointInside: return platform::systemText(SystemText::otherDiskInside);
    case otherOwnerInside: return "Something inside this folder belongs to another user.";
    case lockedInside: return platform::systemText(SystemText::somethingIsLocked);
    case specialFileInside:
        return "Something inside this folder is no ordinary file: programs talk to each other or "
               "to a device through it.";
    case placeholderInside:
        return "The contents of something inside this folder are in a cloud and not on this disk.";
    case unreadableInside:
        return "Tidyro can't read everything inside this folder, so it can't tell what would go "
               "with it.";
    case tooDeepInside:
        return "The folders inside this folder go deeper than Tidyro can look, so it can't tell "
               "what would go with it. Choose something inside it.";
    case backupInside: return "There is a backup inside this folder.";
    case databaseInside:
        return "There is a database inside this folder. Removing it loses whatever its app stored "
               "in it.";
    case inUseLately:
        return "This was in use only a short while ago. Try again when it has been quiet for some "
               "time.";
    case cancelled: return "You stopped Tidyro before it had looked through this.";
    }
    fault("a refusal that does not exist");
}

} // namespace tidyro
