#include "StorageEngine/PickedItems/RemovalConsequence.h"

namespace tidyro {

namespace {

std::string_view groupConsequence(DiskGroup group) {
    switch (group) {
    case DiskGroup::trash: return "Emptied items cannot be put back.";
    case DiskGroup::projectFolders:
        return "The project's tools build this again, which takes time and may need the network.";
    case DiskGroup::appleDeveloper:
        return "Xcode builds or downloads this again the next time it is needed.";
    case DiskGroup::packageCaches:
        return "Packages are downloaded again the next time they are installed.";
    case DiskGroup::applicationCaches:
    case DiskGroup::sandboxedCaches:
        return "The application fills its cache again and may be slower until then.";
    case DiskGroup::logs: return "Records of past problems are lost; nothing depends on them.";
    case DiskGroup::oldDownloads:
        return "Whatever you did not copy elsewhere has to be downloaded again, if it still can "
               "be.";
    case DiskGroup::installers:
        return "Installing again needs another download; what is installed keeps working.";
    case DiskGroup::largeFiles: return "The file is lost unless you have a copy elsewhere.";
    }
    return {};
}

std::string_view categoryConsequence(CleanupCategory category) {
    switch (category) {
    case CleanupCategory::regenerableCache:
        return "Its owner fills the cache again and may be slower until then.";
    case CleanupCategory::temporaryArtifact:
        return "A job that is still using this temporary file would have to start over.";
    case CleanupCategory::expiredLog:
        return "Records of past problems are lost; nothing depends on them.";
    case CleanupCategory::appTemporaryData:
        return "The application forgets what it was keeping for now, such as open windows.";
    case CleanupCategory::download:
        return "Whatever you did not copy elsewhere has to be downloaded again, if it still can "
               "be.";
    case CleanupCategory::exactDuplicate: return "An identical copy stays where it is.";
    case CleanupCategory::largeFile: return "The file is lost unless you have a copy elsewhere.";
    case CleanupCategory::applicationBundle:
        return "The application has to be installed again before it can be used.";
    case CleanupCategory::applicationData: return "Settings and data of the application are lost.";
    case CleanupCategory::personal: return "Personal files are lost unless you have a copy.";
    case CleanupCategory::system: return "The system may stop working.";
    case CleanupCategory::backup: return "What was backed up can no longer be restored from here.";
    case CleanupCategory::cloudPlaceholder:
        return "The file may be deleted from the cloud and from your other devices.";
    case CleanupCategory::projectRepository: return "Work that was not pushed elsewhere is lost.";
    case CleanupCategory::generatedWork:
        return "Results that a tool made for you are lost, and making them again may give others.";
    case CleanupCategory::archivedConversation: return "The conversation cannot be read again.";
    case CleanupCategory::unknown: return "Nothing tells what the item is for or who needs it.";
    }
    return {};
}

} // namespace

std::string_view RemovalConsequence::sentence(std::optional<DiskGroup> group,
                                              CleanupCategory category) {
    return group ? groupConsequence(*group) : categoryConsequence(category);
}

} // namespace tidyro
