// Rates real files of a made home against all shipped rules on one core. Prints what one rating
// takes when nothing is remembered, as right before a file is touched, and when folders are; and
// how many allocations a protected verdict makes. The first of two like passes knows of no tool,
// the second one of homes of AI tools that are fenced.
//
//     RateObservations [FILES]

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "Base/Fault.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/AITools/AIToolFence.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

namespace {

std::size_t allocations = 0;

using namespace tidyro;

constexpr double day = 86'400;

/// A home that goes with its owner.
struct MadeHome {
    std::string path = "/tmp/tidyro-rate-XXXXXX";
    MadeHome() {
        if (::mkdtemp(path.data()) == nullptr) fault("no temporary folder can be made");
    }
    MadeHome(const MadeHome&) = delete;
    MadeHome& operator=(const MadeHome&) = delete;
    ~MadeHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

/// Makes the files, twenty to a folder, and looks at each. They are old enough for every rule, so
/// that each rating goes all the way.
std::vector<FileObservation> observations(std::size_t count, const FileURL& home,
                                          const std::vector<CleanupRule>& rules, Timestamp now) {
    FileObserver observer(home, platform::LiveVolumes());
    std::vector<FileObservation> seen;
    seen.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const CleanupRule& rule = rules[i / 20 % rules.size()];
        const FileURL folder =
            rule.rootURL().appendingFolder("Application/" + std::to_string(i / 20) + "/Cache");
        if (i % 20 == 0) std::filesystem::create_directories(folder.path());
        const FileURL url = folder.appending("file-" + std::to_string(i) + ".bin");
        std::ofstream(url.path()) << "contents";
        auto observation = observer.observation(url);
        if (!observation) fault("a file that was just made cannot be seen");
        observation->modificationDate = now.adding(-400 * day);
        seen.push_back(*std::move(observation));
    }
    return seen;
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
    const std::size_t wanted = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 50'000;
    const MadeHome made;
    const FileURL home = FileURL::folder(made.path);
    const Timestamp now = Timestamp::now();
    const auto rules = BuiltInCleanupRules::allLocations(home);
    auto items = observations(wanted, home, rules, now);
    if (items.empty()) return 1;
    const std::optional<SharedText> volume = items.front().volumeIdentifier;
    if (!volume) return 1;
    std::set<std::string, std::less<>> open;
    for (int i = 0; i < 20'000; ++i) open.insert("/nowhere/open/" + std::to_string(i));
    const SafetyPolicyContext context({.currentUserID = platform::currentUserID(),
                                       .internalLocalVolumeIdentifiers = {std::string(*volume)},
                                       .activeApplicationRoots = {home.appendingFolder("Active")},
                                       .additionalProtectedRoots = {FileURL::folder("/backup")},
                                       .activelyGrowingPaths = {},
                                       .openByProcessPaths = open});
    for (const char* tool : {".codex", ".claude", ".config/Code", ".config/Cursor", ".gemini"}) {
        std::filesystem::create_directories(made.path + "/" + tool);
    }
    SafetyPolicyContext fenced = context;
    fenced.setToolState(AIToolFence::find({.userHome = home}));
    const DeterministicSafetyPolicy policy(home);
    FolderResolver folders;
    DeterministicSafetyPolicy::LastFolder lastFolder;
    struct Pass {
        const char* name;
        FolderResolver* folders;
        bool isOfAnother; ///< the files are protected for their owner's sake
        bool isFenced = false;
    };
    for (const Pass& pass : {Pass{"nothing remembered", nullptr, false},
                             Pass{"nothing remembered, fenced", nullptr, false, true},
                             Pass{"folders resolved on the way", &folders, false},
                             Pass{"folders remembered", &folders, false},
                             Pass{"folders remembered, fenced", &folders, false, true},
                             Pass{"protected by a check", nullptr, true}}) {
        const DeterministicSafetyPolicy::Question question{
            .rules = rules,
            .context = pass.isFenced ? fenced : context,
            .now = now,
            .folders = pass.folders,
            .lastFolder = pass.folders == nullptr ? nullptr : &lastFolder};
        for (FileObservation& item : items) {
            item.ownerUserID = platform::currentUserID() + (pass.isOfAnother ? 1 : 0);
        }
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
                    pass.name, took.count() / static_cast<double>(items.size()) * 1e9, tiers[0],
                    tiers[1], tiers[2], protectedAllocations);
    }
    return 0;
}
