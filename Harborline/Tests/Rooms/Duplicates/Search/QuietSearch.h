#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

/// Searches on a machine where nothing runs and no volume is known.
namespace tidyro::testing {

inline DuplicateEngine quietEngine(std::function<void()> afterListing = nullptr) {
    return DuplicateEngine(DuplicateEngine::Settings{
        .context =
            [] { return std::make_shared<const SafetyPolicyContext>(testing::quietMachine()); },
        .progressInterval = 0,
        .afterListing = std::move(afterListing)});
}

/// All of a place, as a person would whose home lies elsewhere.
inline DuplicateSearchOptions searching(const TemporaryFolder& place) {
    return {.roots = {FileURL::folder(place.path())}, .home = FileURL::folder("/nowhere/ada")};
}

} // namespace tidyro::testing
