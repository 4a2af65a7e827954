#include "StorageEngine/Rules/BuiltInCleanupRules.h"

#include <filesystem>
#include <system_error>

#include "Base/PathText.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

namespace tidyro {

std::vector<CleanupRule> BuiltInCleanupRules::allLocations(const FileURL& home,
                                                           CleanupAgeFloor ageFloor) {
    // The home itself may well be reached through a link.
    const auto realHome = FolderResolver::resolved(home.path());
    std::vector<CleanupRule> rules;
    rules.reserve(BuiltInRuleRegistry::allSpecs().size());
    for (const CleanupRuleSpec& spec : BuiltInRuleRegistry::allSpecs()) {
        rules.emplace_back(CleanupRule::Options{
            .id = std::string(spec.id),
            .rootURL = home.appendingFolder(spec.relativePath),
            .category = spec.category,
            .minimumAge = applied(ageFloor, spec.minimumAge),
            .isRegenerable = true,
            .alwaysNeedsReview = spec.alwaysNeedsReview,
            .expectedRoot = path::joined(realHome.value_or(home.path()), spec.relativePath)});
    }
    return rules;
}

std::vector<CleanupRule> BuiltInCleanupRules::scannableLocations(const FileURL& home,
                                                                 CleanupAgeFloor ageFloor) {
    std::vector<CleanupRule> rules = allLocations(home, ageFloor);
    std::erase_if(rules, [](const CleanupRule& rule) {
        std::error_code failed;
        const auto type = std::filesystem::status(rule.rootPath(), failed).type();
        // Where the system does not say, the scan finds out and tells.
        return type != std::filesystem::file_type::directory &&
               type != std::filesystem::file_type::none;
    });
    return rules;
}

} // namespace tidyro
