#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Rooms/Duplicates/Report/DuplicateReport.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/DuplicateProving.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"
#include "Rooms/Duplicates/Search/ProvenFile.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"

namespace tidyro {

/// Makes the groups of a report of the files that were proven.
class DuplicateGrouping {
  public:
    struct Options {
        const DuplicateListing& listing;
        const DuplicateSearchOptions& search;
        DiskItemRemovalPolicy& policy; ///< says whether a copy may be removed
        Timestamp startedAt;           ///< when reading began
        const CancelToken& cancel;     ///< what is made once it asks is not whole
    };
    explicit DuplicateGrouping(const Options& options);

    struct Groups {
        std::vector<DuplicateGroup> groups; ///< in the report's order
        std::int64_t cloneOnlyGroups = 0;
        std::int64_t furtherNames = 0; ///< names of files beside their first ones
    };
    [[nodiscard]] Groups groups(DuplicateProving::Result proven);

  private:
    struct Named;

    void takeNames(DuplicateProving::Result& proven);
    [[nodiscard]] Named named(const ProvenFile& file) const;
    [[nodiscard]] DuplicateGroup group(std::vector<Named> files);
    [[nodiscard]] std::optional<std::string> heldBecause(const Named& file);
    [[nodiscard]] bool isOnSystemVolume(const std::string& path) const;

    Options options_;
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::vector<std::uint32_t>> names_;
};

} // namespace tidyro
