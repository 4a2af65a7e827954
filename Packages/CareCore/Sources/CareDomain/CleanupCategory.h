#pragma once

#include "Base/RawValues.h"

namespace tidyro {

/// What an item is to its owner. The order is the rank.
enum class CleanupCategory {
    regenerableCache,
    temporaryArtifact,
    expiredLog,
    appTemporaryData,
    download,
    exactDuplicate,
    largeFile,
    applicationBundle,
    applicationData,
    personal,
    system,
    backup,
    cloudPlaceholder,
    projectRepository,
    generatedWork,
    archivedConversation,
    unknown,
};

constexpr RawValueTable<CleanupCategory, 17> rawValues(RawValueTag<CleanupCategory>) {
    using enum CleanupCategory;
    return {{{{regenerableCache, "regenerableCache"},
              {temporaryArtifact, "temporaryArtifact"},
              {expiredLog, "expiredLog"},
              {appTemporaryData, "appTemporaryData"},
              {download, "download"},
              {exactDuplicate, "exactDuplicate"},
              {largeFile, "largeFile"},
              {applicationBundle, "applicationBundle"},
              {applicationData, "applicationData"},
              {personal, "personal"},
              {system, "system"},
              {backup, "backup"},
              {cloudPlaceholder, "cloudPlaceholder"},
              {projectRepository, "projectRepository"},
              {generatedWork, "generatedWork"},
              {archivedConversation, "archivedConversation"},
              {unknown, "unknown"}}}};
}

/// Whether a rule may ever rate an item of this category `safeToReclaim`. The list names what is
/// allowed, so that a category added later is not.
[[nodiscard]] constexpr bool mayBeAllowlistedForSafeCleanup(CleanupCategory category) {
    using enum CleanupCategory;
    return category == regenerableCache || category == temporaryArtifact ||
           category == expiredLog || category == appTemporaryData;
}

} // namespace tidyro
