// Plans half a million candidates and prints how long it takes:
//
//     PlanCleanup [COUNT]
//
// Once in the order in which a scan leaves them: by size, and by id where sizes are the same. Then
// in no order, with sizes that differ, with sizes that are all the same, so that only the ids tell
// the order, and with items that all need review and were approved one by one. The candidates are
// handed over, as by a program that plans what a scan found.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"

namespace {

using namespace tidyro;

/// Twenty files a folder, in no order.
std::vector<CleanupCandidate> candidates(std::size_t count, const FileURL& home, Timestamp now,
                                         bool areSizesEqual, RiskTier tier) {
    std::vector<CleanupCandidate> made;
    made.reserve(count);
    const FileURL root = home.appendingFolder("Library/Caches");
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t number = (i * 0x9E3779B97F4A7C15U) % count;
        FileURL url = root.appending("Application/" + std::to_string(number / 20) + "/Cache/file-" +
                                     std::to_string(number) + "-" + std::to_string(i) + ".bin");
        made.push_back({.observation = {.id = {url.text()},
                                        .url = url,
                                        .kind = FileKind::regularFile,
                                        .byteCount = areSizesEqual ? 4'096 : number * 512,
                                        .modificationDate = now.adding(-1e6),
                                        .ownerUserID = 501,
                                        .volumeIdentifier = "1c0f0f4e-2d6c-4b63-9f1c-0c8a5a0a7e11",
                                        .fileResourceIdentifier = "2049:" + std::to_string(number),
                                        .isReadable = true,
                                        .isCloudPlaceholder = false,
                                        .isInProjectRepository = false,
                                        .isBackupArtifact = false,
                                        .linkCount = 1},
                        .category = CleanupCategory::regenerableCache,
                        .assessment = {.tier = tier,
                                       .evidence = {.codes = {EvidenceCode::regenerable},
                                                    .summary = "Old, inactive, and regenerable."}},
                        .authorization = CleanupAuthorization{authorization::BuiltInRule{
                            .id = "user-library-caches", .rootURL = root}}});
    }
    return made;
}

} // namespace

int main(int count, char** arguments) {
    const std::size_t wanted = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 500'000;
    const FileURL home = FileURL::folder("/home/ada");
    const Timestamp now = Timestamp::now();
    const CleanupPlanner planner(CleanupPlanner::hour, home);
    struct Kind {
        const char* name;
        bool isAsScanned;
        bool areSizesEqual;
        RiskTier tier = RiskTier::safeToReclaim;
    };
    for (const Kind& kind :
         {Kind{"as scanned", true, false}, Kind{"as scanned, equal", true, true},
          Kind{"in no order", false, false}, Kind{"in no order, equal", false, true},
          Kind{"all to review", false, false, RiskTier::reviewCarefully}}) {
        std::vector<double> took;
        for (int run = 0; run < 5; ++run) {
            auto all = candidates(wanted, home, now, kind.areSizesEqual, kind.tier);
            if (kind.isAsScanned) {
                std::ranges::sort(all, [](const CleanupCandidate& a, const CleanupCandidate& b) {
                    if (a.observation.byteCount != b.observation.byteCount) {
                        return a.observation.byteCount > b.observation.byteCount;
                    }
                    return a.id() < b.id();
                });
            }
            std::vector<LocalItemID> approved;
            if (kind.tier == RiskTier::reviewCarefully) {
                for (const CleanupCandidate& one : all) approved.push_back(one.id());
            }
            const auto start = std::chrono::steady_clock::now();
            const auto plan = planner.makeExactPlan({.candidates = std::move(all),
                                                     .mode = CleanupExecutionMode::recoverable,
                                                     .explicitlyApprovedReviewItems = approved,
                                                     .now = now});
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
            if (!plan || plan->entries.size() != wanted) return 1;
            took.push_back(time.count());
        }
        std::ranges::sort(took);
        std::printf("%zu candidates, %s: %.3f s (best %.3f s)\n", wanted, kind.name,
                    took[took.size() / 2], took.front());
    }
    return 0;
}
