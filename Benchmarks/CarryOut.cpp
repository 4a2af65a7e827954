// Makes a home with cache files of 4 KiB in 500 folders, plans them and carries the plan out, with
// the journal and the ledger on the same disk, everything durable at the end:
//
//     CarryOut trash|permanent [FILES] [FOLDER]     10,000 files below the temporary folder
//
// A bare loop over the same number of files stands beside it, as the least that does the same. For
// permanent removal it opens each file's folder, looks at the file, renames it into another folder,
// and unlinks it there. For the Trash it opens each file's folder, makes and writes a note, renames
// the file, and flushes the volume after as many files as a cleanup does.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Folders/TrashNote.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutor.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"
#include "StorageEngine/Cleanup/Planning/CleanupSheetMaker.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

namespace {

using namespace tidyro;

constexpr double aYear = 365 * 86'400.0;
constexpr std::size_t folderCount = 500;

/// In seconds. The processor's time leaves out what other programs and the disk take.
struct Spent {
    double passed = 0;
    double ofProcessor = 0; ///< of this process and of the system in its name
};

Spent spent(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    const std::clock_t ticks = std::clock();
    work();
    return {.passed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
            .ofProcessor = static_cast<double>(std::clock() - ticks) / CLOCKS_PER_SEC};
}

/// The most memory that this process has had, in bytes.
std::uint64_t peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::strtoull(line.c_str() + 6, nullptr, 10) * 1'024;
    }
    return 0;
}

std::vector<FileURL> makeFiles(const FileURL& home, std::size_t count) {
    std::vector<FileURL> made;
    const std::string contents(4'096, 'x');
    for (std::size_t i = 0; i < folderCount; ++i) {
        std::filesystem::create_directories(
            home.appendingFolder(".npm/_cacache/content-v2/" + std::to_string(i)).path());
    }
    for (std::size_t i = 0; i < count; ++i) {
        made.push_back(home.appending(".npm/_cacache/content-v2/" +
                                      std::to_string(i % folderCount) + "/contents-" +
                                      std::to_string(i)));
        std::ofstream(made.back().path()) << contents;
    }
    ::sync();
    return made;
}

CleanupPlan planFor(const FileURL& home, const std::vector<FileURL>& files,
                    const SafetyPolicyContext& context, const platform::Volumes& volumes,
                    CleanupExecutionMode mode, Timestamp now) {
    const auto rules = BuiltInCleanupRules::currentUser(home);
    FileObserver observer(home, volumes);
    const DeterministicSafetyPolicy policy(home);
    const CleanupAuthorization authorized{authorization::BuiltInRule{
        .id = "npm-cache", .rootURL = home.appendingFolder(".npm/_cacache")}};
    std::vector<CleanupCandidate> candidates;
    candidates.reserve(files.size());
    for (const FileURL& file : files) {
        candidates.push_back(policy
                                 .classify(*observer.observation(file),
                                           {.rules = rules, .context = context, .now = now})
                                 .authorized(authorized));
    }
    return CleanupPlanner(CleanupPlanner::hour, home)
        .makeExactPlan({.candidates = std::move(candidates), .mode = mode, .now = now})
        .value();
}

void removeBarely(const CleanupPlan& plan) {
    platform::LiveFolderChanges changes;
    std::filesystem::create_directory(
        std::string(path::parent(plan.entries.front().sourceURL.path())) + "/../aside");
    for (const CleanupPlanEntry& entry : plan.entries) {
        const std::string& path = entry.sourceURL.path();
        const std::string folder(path::parent(path));
        const std::string name(path::lastComponent(path));
        const auto parent = platform::FolderDescriptor::openRoot(folder);
        const auto aside = platform::FolderDescriptor::openRoot(folder + "/../aside");
        if (!parent || !aside || !platform::fileMetadata(*parent, name.c_str()) ||
            !changes.renameNeverReplacing({*parent, name}, {*aside, name}) ||
            !changes.removeFile({*aside, name})) {
            std::abort();
        }
    }
}

void trashBarely(const CleanupPlan& plan, const std::string& base) {
    constexpr std::size_t filesPerFlush = 200;
    platform::LiveFolderChanges changes;
    const auto made = [&](const char* name) {
        std::filesystem::create_directories(base + name);
        return platform::FolderDescriptor::openRoot(base + name);
    };
    const auto files = made("/files");
    const auto notes = made("/info");
    if (!files || !notes) std::abort();
    const Timestamp now = Timestamp::now();
    std::size_t unflushed = 0;
    for (const CleanupPlanEntry& entry : plan.entries) {
        const std::string& path = entry.sourceURL.path();
        const std::string name(path::lastComponent(path));
        const std::string noteName = name + ".trashinfo";
        const auto parent = platform::FolderDescriptor::openRoot(std::string(path::parent(path)));
        if (!parent ||
            !platform::makeFileIn({*notes, noteName}, platform::trashNote(path, {}, now),
                                  platform::ChangeGate::open()) ||
            !changes.renameNeverReplacing({*parent, name}, {*files, name})) {
            std::abort();
        }
        if (++unflushed == filesPerFlush || &entry == &plan.entries.back()) {
            if (!changes.flushVolume(*files)) std::abort();
            unflushed = 0;
        }
    }
}

} // namespace

int main(int count, char** arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    const std::size_t wanted = count > 2 ? std::strtoul(arguments[2], nullptr, 10) : 10'000;
    const bool isPermanent = what == "permanent";
    if ((!isPermanent && what != "trash") || wanted == 0) return 64;
    const std::filesystem::path above =
        count > 3 ? arguments[3] : std::filesystem::temp_directory_path();
    std::string place = (above / "carry-out-XXXXXX").string();
    if (::mkdtemp(place.data()) == nullptr) return 64;
    place = std::filesystem::canonical(place);
    const FileURL home = FileURL::folder(place);
    const auto volumes = platform::testing::FakeVolumes::withOneAt(place);
    const platform::testing::FakeRunningApplications applications;
    auto context = std::make_shared<const SafetyPolicyContext>(
        SafetyPolicyFacts{.currentUserID = platform::currentUserID(),
                          .internalLocalVolumeIdentifiers = {"inside"},
                          .activeApplicationRoots = {},
                          .additionalProtectedRoots = {},
                          .activelyGrowingPaths = {},
                          .openByProcessPaths = {}});
    const Timestamp planned = Timestamp::now().adding(aYear);
    const auto mode =
        isPermanent ? CleanupExecutionMode::permanent : CleanupExecutionMode::recoverable;

    const auto makePlan = [&] {
        return planFor(home, makeFiles(home, wanted), *context, volumes, mode, planned);
    };
    Spent bare;
    if (isPermanent) {
        const CleanupPlan barely = makePlan();
        bare = spent([&] { removeBarely(barely); });
    }
    const CleanupPlan plan = makePlan();
    const CleanupPlanSheet sheet = CleanupSheetMaker::sheetFor({.plan = plan});
    CleanupApproval approval{.planID = plan.id,
                             .approvedCandidateIDs = {},
                             .itemLevelApprovedCandidateIDs = {},
                             .approvedAt = planned.adding(1)};
    for (const auto& entry : plan.entries) approval.approvedCandidateIDs.insert(entry.candidateID);

    platform::LiveFolderChanges changes;
    platform::FolderFlushes flushes(changes);
    FileCleanupIntentJournal::Options journalOptions;
    journalOptions.flushChanges = [&] { return flushes.flush(); };
    FileCleanupIntentJournal journal(home.appendingFolder(".local/share/Harborline/intents"),
                                     journalOptions);
    auto ledger =
        JSONRecoveryLedger::open(home.appending(".local/share/ledger.json"), std::string(32, 'k'));
    CleanupExecutor::Options options{
        .home = home, .ledger = *ledger, .journal = &journal, .flushes = &flushes};
    CleanupExecutor::Machine machine{.volumes = volumes,
                                     .applications = applications,
                                     .freshContext = [&] { return context; },
                                     .changes = changes,
                                     .trashHome = home.appendingFolder(".local/share/Trash")};
    auto executor = isPermanent ? CleanupExecutor::permanent(options, machine)
                                : CleanupExecutor::recoverable(options, machine);
    const std::uint64_t memoryBefore = peakMemory();
    std::uint64_t done = 0;
    const Spent took = spent([&] {
        const auto receipt =
            executor.execute({.plan = plan,
                              .sheet = &sheet,
                              .approval = approval,
                              .acknowledgement =
                                  PermanentCleanupAcknowledgement{
                                      .planID = plan.id,
                                      .itemCount = static_cast<std::int64_t>(plan.entries.size()),
                                      .byteCount = plan.potentiallyReclaimableByteCount(),
                                      .acknowledgedAt = planned.adding(1)},
                              .at = planned.adding(2)});
        if (!receipt) std::printf("%s\n", receipt.error().description().c_str());
        if (!receipt) return;
        for (const CleanupReceiptEntry& entry : receipt->entries) {
            if (entry.failureDescription) std::printf("%s\n", entry.failureDescription->c_str());
            done += entry.failureDescription ? 0U : 1U;
        }
    });
    const double items = static_cast<double>(wanted);
    std::printf("%llu of %zu items: %.2f s, %.0f us each (processor: %.0f), %.0f bytes of memory "
                "each\n",
                static_cast<unsigned long long>(done), wanted, took.passed,
                took.passed * 1e6 / items, took.ofProcessor * 1e6 / items,
                static_cast<double>(peakMemory() - memoryBefore) / items);
    if (!isPermanent) {
        const CleanupPlan barely = makePlan();
        const std::string base = home.appendingFolder(".local/share/bare").path();
        bare = spent([&] { trashBarely(barely, base); });
    }
    std::printf("bare loop: %.2f s, %.0f us each (processor: %.0f); ratio %.2f\n", bare.passed,
                bare.passed * 1e6 / items, bare.ofProcessor * 1e6 / items,
                took.passed / bare.passed);
    std::filesystem::remove_all(place);
    return done == wanted ? 0 : 1;
}
