#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Rooms/Duplicates/Search/CopyPlaces.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/DuplicateProving.h"
#include "Rooms/Duplicates/Search/DuplicateReport.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"
#include "Rooms/Duplicates/Search/ListedFileOpener.h"
#include "Rooms/Duplicates/Search/ProvenFile.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"

namespace tidyro {

/// Makes the sets of copies of a report from the files that were proven.
class DuplicateGrouping {
  public:
    struct Options {
        const DuplicateListing& listing;
        const DuplicateSearchOptions& search;
        DiskItemRemovalPolicy& policy; ///< says whether a copy may be removed
        /// What is in use. Null when it is not known; the policy then lets nothing go.
        const SafetyPolicyContext* context;
        Timestamp startedAt;       ///< when reading began
        const CancelToken& cancel; ///< after a cancellation the result is not whole
    };
    explicit DuplicateGrouping(const Options& options);

    struct Groups {
        std::vector<DuplicateGroup> groups; ///< in the report's order
        std::int64_t cloneOnlyGroups = 0;
        std::int64_t furtherNames = 0; ///< names of files beside their first ones
    };
    [[nodiscard]] Groups makeGroups(DuplicateProving::Result proven);

  private:
    struct Named;

    void keepEachFileOnce(DuplicateProving::Result& proven);
    [[nodiscard]] Named withNames(const ProvenFile& file) const;
    [[nodiscard]] DuplicateGroup makeGroup(std::vector<Named> files);
    void judge(Named& file, DuplicateCopy& copy);
    void judgeTogether(const std::vector<Named>& files, DuplicateGroup& group);
    [[nodiscard]] std::expected<CleanupPlanEntry, DiskItemRefusal> askPolicy(const Named& file);
    [[nodiscard]] bool isOpenByPath(const Named& file);
    [[nodiscard]] bool isOpen(const Named& file);
    [[nodiscard]] bool beginsAsProgram(const Named& file);
    [[nodiscard]] bool isOnSystemVolume(const std::string& path) const;

    Options options_;
    CopyPlaces places_;
    ListedFileOpener opener_;
    std::map<platform::ItemIdentity, std::vector<std::uint32_t>> furtherNames_;
};

} // namespace tidyro
