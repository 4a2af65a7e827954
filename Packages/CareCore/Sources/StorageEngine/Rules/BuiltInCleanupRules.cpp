#include "StorageEngine/Rules/BuiltInCleanupRules.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "Base/PathText.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

namespace tidyro {

namespace {

/// The names of the folders in a folder, in their order. Links are none, since a rule grants
/// nothing behind one.
std::vector<std::string> folderNames(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code failed;
    for (std::filesystem::directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        std::error_code unknown;
        if (at->symlink_status(unknown).type() == std::filesystem::file_type::directory) {
            names.push_back(at->path().filename().string());
        }
    }
    std::ranges::sort(names);
    return names;
}

/// A row bound to one folder.
struct BoundRow {
    std::string id;
    std::string belowHome;
};

std::vector<BoundRow> boundRows(const CleanupRuleSpec& spec, const FileURL& home,
                                const BaseFolders& bases) {
    std::string place = bases.moved(spec.relativePath);
    const std::size_t star = place.find('*');
    if (star == std::string::npos) {
        return {{.id = std::string(spec.id), .belowHome = std::move(place)}};
    }
    std::vector<BoundRow> rows;
    for (const std::string& name : folderNames(path::joined(home.path(), place.substr(0, star)))) {
        rows.push_back({.id = std::string(spec.id) + ":" + name,
                        .belowHome = place.substr(0, star) + name + place.substr(star + 1)});
    }
    return rows;
}

} // namespace

std::vector<CleanupRule> BuiltInCleanupRules::allLocations(const FileURL& home,
                                                           CleanupAgeFloor ageFloor,
                                                           OperatingSystem system) {
    // The home itself may well be reached through a link.
    const auto realHome = FolderResolver::resolved(home.path());
    const BaseFolders bases = BaseFolders::find(home);
    std::vector<CleanupRule> rules;
    rules.reserve(BuiltInRuleRegistry::allSpecs(system).size());
    for (const CleanupRuleSpec& spec : BuiltInRuleRegistry::allSpecs(system)) {
        for (BoundRow& row : boundRows(spec, home, bases)) {
            rules.emplace_back(CleanupRule::Options{
                .id = std::move(row.id),
                .rootURL = home.appendingFolder(row.belowHome),
                .category = spec.category,
                .minimumAge = applied(ageFloor, spec.minimumAge),
                .isRegenerable = true,
                .alwaysNeedsReview = spec.alwaysNeedsReview,
                .onlyInCacheFolders = spec.onlyInCacheFolders,
                .builtHereMark = std::string(spec.builtHereMark),
                .expectedRoot = path::joined(realHome.value_or(home.path()), row.belowHome)});
        }
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
