#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"

namespace tidyro {

std::vector<FileURL> DuplicateSearchOptions::macOSVolumes() {
    return {FileURL::folder("/System/Volumes/Preboot"), FileURL::folder("/System/Volumes/Update"),
            FileURL::folder("/System/Volumes/Recovery")};
}

} // namespace tidyro
