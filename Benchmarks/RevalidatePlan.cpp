// Makes cache files in a folder for temporary files, plans them and prints what checking the plan
// again costs, beside the bare looks at the disk that it takes:
//
//     RevalidatePlan [FILES]     20,000 when left out, twenty a folder
//
// The bare loop makes the same looks: at each folder once, to open it, to find out where it really
// lies and what surrounds it; at each file, its facts, whether it may be read, and who has it open.
// Both run over files that were looked at before. The middle of several runs is printed.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"
#include "StorageEngine/Cleanup/Revalidation/PlanRevalidator.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Observation/FolderSurroundings.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

namespace {

using namespace tidyro;

constexpr double aYear = 365 * 86'400.0;

/// Microseconds for each of `count`: the middle of several runs.
double middle(std::size_t count, const std::function<void()>& work) {
    std::vector<double> took;
    for (int run = 0; run < 7; ++run) {
        const auto start = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double, std::micro> time =
            std::chrono::steady_clock::now() - start;
        took.push_back(time.count() / static_cast<double>(count));
    }
    std::ranges::sort(took);
    return took[took.size() / 2];
}

std::vector<FileURL> makeFiles(const FileURL& home, std::size_t count) {
    std::vector<FileURL> made;
    for (std::size_t i = 0; i < count; ++i) {
        const FileURL folder =
            home.appendingFolder(".npm/_cacache/content-v2/sha512/" + std::to_string(i / 20));
        if (i % 20 == 0) std::filesystem::create_directories(folder.path());
        made.push_back(folder.appending("contents-" + std::to_string(i)));
        std::ofstream(made.back().path()) << std::string(100 + i * 7 % 3'001, 'x');
    }
    return made;
}

CleanupPlan planFor(const FileURL& home, const std::vector<FileURL>& files,
                    const std::vector<CleanupRule>& rules, const SafetyPolicyContext& context,
                    const platform::Volumes& volumes, Timestamp now) {
    FileObserver observer(home, volumes);
    const DeterministicSafetyPolicy policy(home);
    std::vector<CleanupCandidate> candidates;
    candidates.reserve(files.size());
    for (const FileURL& file : files) {
        candidates.push_back(policy.classify(*observer.observation(file),
                                             {.rules = rules, .context = context, .now = now}));
    }
    return CleanupPlanner(CleanupPlanner::hour, home)
        .makeExactPlan({.candidates = std::move(candidates),
                        .mode = CleanupExecutionMode::recoverable,
                        .now = now})
        .value();
}

void lookBarely(const CleanupPlan& plan, const FileURL& home) {
    FolderSurroundingsFinder surroundings(home);
    std::map<std::string, platform::FolderDescriptor, std::less<>> folders;
    for (const CleanupPlanEntry& entry : plan.entries) {
        const std::string& path = entry.sourceURL.path();
        const auto parent = path::parent(path);
        auto known = folders.find(parent);
        if (known == folders.end()) {
            const std::string folder(parent);
            known = folders.emplace(folder, *platform::FolderDescriptor::openRoot(folder)).first;
            if (surroundings.surroundings(folder).isInDatabase ||
                !FolderResolver::resolved(folder)) {
                std::abort();
            }
        }
        const char* name = path.c_str() + parent.size() + 1;
        if (!platform::fileMetadata(known->second, name) ||
            !platform::isReadable(known->second, name) ||
            platform::fileUse(known->second, name) == platform::FileUse::inUse) {
            std::abort();
        }
    }
}

} // namespace

int main(int count, char** arguments) {
    const std::size_t wanted = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 20'000;
    std::string place = (std::filesystem::temp_directory_path() / "plan-XXXXXX").string();
    if (wanted == 0 || ::mkdtemp(place.data()) == nullptr) return 64;
    const FileURL home = FileURL::folder(place);
    const auto volumes = platform::testing::FakeVolumes::withOneAt(place);
    const platform::testing::FakeRunningApplications applications;
    SafetyPolicyFacts::PathSet open;
    for (int i = 0; i < 20'000; ++i) open.insert("/nowhere/open/" + std::to_string(i));
    auto context = std::make_shared<const SafetyPolicyContext>(
        SafetyPolicyFacts{.currentUserID = platform::currentUserID(),
                          .internalLocalVolumeIdentifiers = {"inside"},
                          .activeApplicationRoots = {home.appendingFolder("active")},
                          .additionalProtectedRoots = {home.appendingFolder("protected")},
                          .activelyGrowingPaths = {},
                          .openByProcessPaths = open});
    const auto rules = BuiltInCleanupRules::currentUser(home);
    const Timestamp now = Timestamp::now().adding(aYear);
    const CleanupPlan plan = planFor(home, makeFiles(home, wanted), rules, *context, volumes, now);
    DefaultPlanRevalidator revalidator({.home = home,
                                        .rules = rules,
                                        .freshContext = [&] { return context; },
                                        .volumes = volumes,
                                        .applications = applications});
    std::size_t passed = 0;
    const double checked = middle(wanted, [&] {
        const auto report = revalidator.revalidate(plan, now);
        passed = static_cast<std::size_t>(std::ranges::count_if(
            report->entries, [](const EntryRevalidation& entry) { return !entry.issue; }));
    });
    const double bare = middle(wanted, [&] { lookBarely(plan, home); });
    std::printf("%zu entries, %zu pass: %.2f us each, %.2f us more than the looks (%.2f us)\n",
                wanted, passed, checked, checked - bare, bare);
    std::filesystem::remove_all(place);
    return passed == wanted ? 0 : 1;
}
