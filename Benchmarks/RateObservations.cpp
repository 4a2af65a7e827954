// Rates a million observations against all shipped rules on one core and prints what one takes, and
// how many allocations a protected verdict makes.
//
//     RateObservations [COUNT]

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

namespace {

std::size_t allocations = 0;

using namespace tidyro;

constexpr double day = 86'400;

/// A third is protected by a check, a third by its age, a third is safe; twenty files a folder.
std::vector<FileObservation> observations(std::size_t count, const std::vector<CleanupRule>& rules,
                                          Timestamp now) {
    std::vector<FileObservation> made;
    made.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const CleanupRule& rule = rules[i / 20 % rules.size()];
        const FileURL url = rule.rootURL().appending("Application/" + std::to_string(i / 20) +
                                                     "/Cache/file-" + std::to_string(i) + ".bin");
        made.push_back({.id = {url.text()},
                        .url = url,
                        .kind = FileKind::regularFile,
                        .byteCount = i,
                        .modificationDate = now.adding(i % 3 == 1 ? -day : -400 * day),
                        .ownerUserID = i % 3 == 0 ? 0U : 501U,
                        .volumeIdentifier = "internal",
                        .isReadable = true,
                        .isCloudPlaceholder = false,
                        .isInProjectRepository = false,
                        .isBackupArtifact = false,
                        .linkCount = 1});
    }
    return made;
}

} // namespace

void* operator new(std::size_t size) {
    ++allocations;
    void* block = std::malloc(size); // NOLINT
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void operator delete(void* block) noexcept { std::free(block); }              // NOLINT
void operator delete(void* block, std::size_t) noexcept { std::free(block); } // NOLINT

int main(int count, char** arguments) {
    const std::size_t wanted = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 1'000'000;
    const FileURL home = FileURL::folder("/nowhere/ada");
    const Timestamp now = Timestamp::now();
    const auto rules = BuiltInCleanupRules::allLocations(home);
    std::set<std::string, std::less<>> open;
    for (int i = 0; i < 20'000; ++i) open.insert("/nowhere/open/" + std::to_string(i));
    const SafetyPolicyContext context({.currentUserID = 501,
                                       .internalLocalVolumeIdentifiers = {"internal"},
                                       .activeApplicationRoots = {home.appendingFolder("Active")},
                                       .additionalProtectedRoots = {FileURL::folder("/backup")},
                                       .activelyGrowingPaths = {},
                                       .openByProcessPaths = open});
    const DeterministicSafetyPolicy policy(home);
    FolderResolver folders;
    auto items = observations(wanted, rules, now);
    const DeterministicSafetyPolicy::Question question{
        .rules = rules, .context = context, .now = now, .folders = &folders};

    for (const char* pass : {"folders resolved on the way", "folders known"}) {
        std::size_t tiers[3] = {};
        std::size_t protectedAllocations = 0;
        const auto start = std::chrono::steady_clock::now();
        for (FileObservation& item : items) {
            const std::size_t before = allocations;
            CleanupCandidate candidate = policy.classify(std::move(item), question);
            ++tiers[static_cast<std::size_t>(candidate.assessment.tier)];
            if (candidate.assessment.evidence.codes.contains(EvidenceCode::ownershipUnverified)) {
                protectedAllocations += allocations - before;
            }
            item = std::move(candidate.observation);
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        std::printf("%s: %.0f ns each; %zu safe, %zu to review, %zu protected; "
                    "%zu allocations for fixed verdicts\n",
                    pass, took.count() / static_cast<double>(items.size()) * 1e9, tiers[0],
                    tiers[1], tiers[2], protectedAllocations);
    }
    return 0;
}
