#include "StorageEngine/Suggestions/SmartCleanupScan.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <numeric>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "StorageEngine/Suggestions/CleanupPlaceWalk.h"
#include "StorageEngine/Suggestions/FolderLooks.h"

namespace tidyro {

namespace {

using Clock = std::chrono::steady_clock;
using Context = LocalRuntimeSafetyContextProvider::Context;

struct Describe {
    std::string operator()(const SmartCleanupScan::ContextUnavailable& none) const {
        return "Tidyro could not find out " + std::string(whatIsUnknown(none.missing)) +
               ", so nothing was rated and nothing was touched. " +
               (none.missing == MissingPiece::desktopFolders ? "Correct that file and try again."
                                                             : "Try again.");
    }
    std::string operator()(const CancellationError&) const { return "The scan was cancelled."; }
};

/// Sleeps, and wakes when it is cancelled.
void waitFor(double seconds, const CancelToken& cancel) {
    std::mutex mutex;
    std::condition_variable_any woken;
    std::unique_lock lock(mutex);
    woken.wait_for(lock, cancel, std::chrono::duration<double>(seconds), [] { return false; });
}

/// Counts the names of files that have several: such a file frees nothing before its last name is
/// gone.
class NameCount {
  public:
    /// Counts one name. True when it was the last one that the file has.
    bool add(const platform::ItemIdentity& file, std::uint64_t linkCount) {
        if (linkCount < 2) return true;
        return ++counted_[{file.device, file.inode}] == linkCount;
    }

  private:
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t> counted_;
};

/// Sorts the candidates' numbers and moves each candidate once: it is large, and sorting it
/// directly would move it some twenty times.
void sortForPeople(std::vector<CleanupCandidate>& candidates) {
    std::vector<std::uint32_t> from(candidates.size());
    std::iota(from.begin(), from.end(), 0U);
    std::ranges::sort(from, [&](std::uint32_t first, std::uint32_t second) {
        const CleanupCandidate& a = candidates[first];
        const CleanupCandidate& b = candidates[second];
        return std::tie(a.assessment.tier, b.observation.byteCount, a.id().rawValue) <
               std::tie(b.assessment.tier, a.observation.byteCount, b.id().rawValue);
    });
    for (std::uint32_t first = 0; first < from.size(); ++first) {
        if (from[first] == first) continue;
        CleanupCandidate taken = std::move(candidates[first]);
        std::uint32_t at = first;
        for (; from[at] != first; at = std::exchange(from[at], at)) {
            candidates[at] = std::move(candidates[from[at]]);
        }
        candidates[at] = std::move(taken);
        from[at] = at;
    }
}

class Run {
  public:
    Run(const FileURL& home, const platform::Volumes& volumes,
        const SmartCleanupScan::Options& options, const SmartCleanupScan::ProgressHandler& progress,
        const CancelToken& cancel)
        : home_(home),
          volumes_(volumes),
          options_(options),
          progressHandler_(progress),
          cancel_(cancel),
          policy_(home),
          rules_(BuiltInCleanupRules::scannableLocations(home, options.ageFloor)) {
        for (const CleanupRule& rule : rules_) roots_.insert(rule.rootPath());
    }

    void look(const SafetyPolicyContext& context);
    [[nodiscard]] bool hasFoundAny() const { return eligibleCount_ > 0; }
    void confirm(const SafetyPolicyContext& context);
    [[nodiscard]] SmartCleanupReport report(Timestamp startedAt);

  private:
    using Phase = SmartCleanupScan::Progress::Phase;

    /// Folders that are looked at together: enough to keep all threads busy, few enough to be held
    /// open, and to be kept in memory twice.
    static constexpr std::size_t maxFoldersTogether = 64;
    static constexpr std::size_t maxFilesTogether = 2'048;

    [[nodiscard]] std::vector<CleanupPlace> openPlaces();
    void walk(const CleanupPlace& place, std::span<const CleanupPlace> places,
              const SafetyPolicyContext& context, Lookers& lookers);
    /// What is known of a file beside its observation.
    struct Signs {
        PartOf partOf = PartOf::nothing;
        platform::FileUse use = platform::FileUse::unknown;
        bool isGrowing = false;
    };
    [[nodiscard]] CleanupCandidate rated(FileObservation file, const Signs& signs,
                                         const SafetyPolicyContext& context, Looker& looker) const;
    // These look at one folder, on any thread.
    [[nodiscard]] Findings firstLook(const CleanupPlaceWalk::Folder& in,
                                     const SafetyPolicyContext& context, Looker& looker) const;
    [[nodiscard]] Findings secondLook(const EligibleFolder& in, const SafetyPolicyContext& context,
                                      Looker& looker) const;
    [[nodiscard]] std::optional<CleanupCandidate>
    seenAgain(const EligibleFolder& in, const EligibleFile& file,
              const platform::FolderDescriptor& folder, const FileURL& url,
              const SafetyPolicyContext& context, Looker& looker, Findings& findings) const;
    [[nodiscard]] bool keep(Findings findings, const CleanupPlace& place);
    void takeOver(Findings& findings, SmartCleanupGroup& in);
    void addCandidate(CleanupCandidate candidate, const EligibleFile& file, SmartCleanupGroup& in);
    void leaveOut(const CleanupPlace& place);
    [[nodiscard]] SmartCleanupGroup& group(const FileURL& url);
    void tell(Phase phase, std::uint64_t done, std::uint64_t total, const std::string& path);

    const FileURL& home_;
    const platform::Volumes& volumes_;
    const SmartCleanupScan::Options& options_;
    const SmartCleanupScan::ProgressHandler& progressHandler_;
    const CancelToken& cancel_;
    DeterministicSafetyPolicy policy_;
    std::vector<CleanupRule> rules_;
    std::set<std::string, std::less<>> roots_; ///< of the rules
    std::vector<EligibleFolder> eligible_;
    std::uint64_t eligibleCount_ = 0; ///< files
    Timestamp now_;                   ///< when the look began
    bool isFull_ = false;             ///< no further candidate fits
    NameCount names_;
    std::unordered_map<const CleanupRule*, SmartCleanupGroup> groups_;
    SmartCleanupReport report_;
    std::uint64_t placesDone_ = 0;
    std::optional<Clock::time_point> toldAt_;
};

void Run::tell(Phase phase, std::uint64_t done, std::uint64_t total, const std::string& path) {
    if (!progressHandler_) return;
    const auto now = Clock::now();
    if (toldAt_ &&
        std::chrono::duration<double>(now - *toldAt_).count() < options_.progressInterval) {
        return;
    }
    toldAt_ = now;
    progressHandler_({.phase = phase,
                      .done = done,
                      .total = total,
                      .entriesRead = report_.entriesRead,
                      .currentPath = path});
}

std::vector<CleanupPlace> Run::openPlaces() {
    std::vector<CleanupPlace> places;
    for (const CleanupRule& rule : rules_) {
        auto place = CleanupPlace::open(rule, home_);
        if (!place) {
            if (auto gap = std::move(place.error())) report_.addGap(*std::move(gap));
            continue;
        }
        const bool isKnown = std::ranges::any_of(
            places, [&](const CleanupPlace& known) { return known.identity == place->identity; });
        if (!isKnown) places.push_back(*std::move(place));
    }
    return places;
}

CleanupCandidate Run::rated(FileObservation file, const Signs& signs,
                            const SafetyPolicyContext& context, Looker& looker) const {
    using enum DeterministicSafetyPolicy::AgeCount;
    return policy_.classify(std::move(file), {.rules = rules_,
                                              .context = context,
                                              .now = now_,
                                              .folders = &looker.folders,
                                              .lastFolder = &looker.lastFolder,
                                              .partOf = signs.partOf,
                                              .ageCount = sinceModificationAndCreation,
                                              .use = signs.use,
                                              .isGrowing = signs.isGrowing});
}

Findings Run::firstLook(const CleanupPlaceWalk::Folder& in, const SafetyPolicyContext& context,
                        Looker& looker) const {
    using enum CoverageGapReason;
    Findings findings{.eligible = {.url = in.url}};
    if (in.listed) looker.setListed(*in.listed);
    std::string name;
    for (std::size_t at = 0; at < in.names.size(); at += name.size() + 1) {
        if (cancel_.stop_requested()) break;
        name = in.names.data() + at;
        const auto seen = platform::fileMetadata(*in.folder, name.c_str());
        if (!seen && platform::hasVanished(seen.error())) continue;
        const FileURL url = in.url.appending(name);
        if (!seen) {
            findings.addGap(url, metadataUnavailable, seen.error().description());
            continue;
        }
        // The folder's mount was asked for. A file seen through another one is mounted by itself.
        const std::optional<std::uint64_t> mount = seen->mount;
        const bool isMounted =
            mount ? *mount != in.facts.volume : seen->identity.device != in.facts.identity.device;
        if (isMounted) {
            findings.addGap(url, mountBoundaryExcluded, "Something else is mounted here.");
            continue;
        }
        if (seen->kind != platform::ItemKind::regularFile) {
            findings.addGap(url, unsupportedFileType, "Sockets, pipes and devices are left alone.");
            continue;
        }
        // The second look opens the file, which is the whole truth. So here the permissions of the
        // person's own file will do.
        const bool isReadable =
            (seen->isReadableByOwner && seen->ownerUserID == context.facts().currentUserID) ||
            platform::isReadable(*in.folder, name.c_str());
        using enum FileObserver::Readable;
        FileObservation observation =
            looker.observer.observation(url, *seen, isReadable ? yes : no);
        // The second look also finds out the rest: most files never come that far. But a repository
        // may be a tool's own checkout.
        Signs signs;
        if (observation.isInProjectRepository) {
            signs.partOf = looker.observer.partOf(*in.folder, observation);
        }
        const CleanupCandidate candidate = rated(std::move(observation), signs, context, looker);
        if (candidate.assessment.tier == RiskTier::protected_) {
            findings.hold(candidate);
        } else {
            findings.eligible.add(candidate.observation, *seen);
        }
    }
    findings.eligible.names.shrink_to_fit();
    findings.eligible.files.shrink_to_fit();
    return findings;
}

/// False when no further candidate fits.
bool Run::keep(Findings findings, const CleanupPlace& place) {
    EligibleFolder& eligible = findings.eligible;
    if (findings.held.itemCount > 0 || !findings.gaps.empty()) {
        takeOver(findings, group(eligible.url));
    }
    if (eligible.files.empty()) return true;
    const std::uint64_t room = options_.budget.candidates - eligibleCount_;
    if (eligible.files.size() > room) {
        isFull_ = true;
        leaveOut(place);
        eligible.files.resize(room);
    }
    eligibleCount_ += eligible.files.size();
    eligible_.push_back(std::move(eligible));
    return !isFull_;
}

void Run::takeOver(Findings& findings, SmartCleanupGroup& in) {
    in.held.add(findings.held);
    for (const auto& [code, count] : findings.heldBecause) in.heldBecause[code] += count;
    for (CoverageGap& gap : findings.gaps) report_.addGap(std::move(gap));
}

void Run::walk(const CleanupPlace& place, std::span<const CleanupPlace> places,
               const SafetyPolicyContext& context, Lookers& lookers) {
    std::vector<CleanupPlaceWalk::Folder> together;
    std::size_t fileCount = 0;
    const auto lookAtThem = [&] {
        std::vector<Findings> found(together.size());
        lookers.forEach(together.size(), [&](std::size_t i, Looker& looker) {
            found[i] = firstLook(together[i], context, looker);
        });
        together.clear();
        fileCount = 0;
        return std::ranges::all_of(
            found, [&](Findings& findings) { return keep(std::move(findings), place); });
    };
    const auto take = [&](CleanupPlaceWalk::Folder folder) {
        fileCount += folder.count;
        together.push_back(std::move(folder));
        return (together.size() < maxFoldersTogether && fileCount < maxFilesTogether) ||
               lookAtThem();
    };
    const CleanupPlaceWalk::Options walkOptions{
        .places = places,
        .roots = roots_,
        .protectedRoots = context.additionalProtectedRootIndex(),
        .maxEntries = options_.budget.entriesPerPlace,
        .maxDepth = std::min(options_.budget.depth, platform::openFolderBudget() / 2),
        .take = take,
        .addGap = [&](CoverageGap gap) { report_.addGap(std::move(gap)); },
        .enterFolder =
            [&](const std::string& folder) {
                tell(Phase::looking, placesDone_, places.size(), folder);
            },
        .cancel = cancel_};
    CleanupPlaceWalk walk(place, walkOptions);
    walk.run();
    lookAtThem();
    report_.entriesRead += walk.entriesRead();
}

void Run::leaveOut(const CleanupPlace& place) {
    report_.addGap({.url = place.rule->rootURL(),
                    .reason = CoverageGapReason::scanBudgetExceeded,
                    .detail = "There is more to clean than one scan takes in. Clean what was found "
                              "and scan again."});
}

void Run::look(const SafetyPolicyContext& context) {
    now_ = options_.clock();
    const std::vector<CleanupPlace> places = openPlaces();
    Lookers lookers(home_, volumes_);
    for (const CleanupPlace& place : places) {
        if (cancel_.stop_requested()) return;
        if (isFull_) {
            leaveOut(place);
            continue;
        }
        walk(place, places, context, lookers);
        ++placesDone_;
    }
}

/// None for a file that is gone or that the system tells nothing of.
std::optional<CleanupCandidate> Run::seenAgain(const EligibleFolder& in, const EligibleFile& file,
                                               const platform::FolderDescriptor& folder,
                                               const FileURL& url,
                                               const SafetyPolicyContext& context, Looker& looker,
                                               Findings& findings) const {
    const std::string name(url.lastComponent());
    const auto seen = platform::fileMetadata(folder, name.c_str());
    if (!seen) {
        if (!platform::hasVanished(seen.error())) {
            findings.addGap(url, CoverageGapReason::metadataUnavailable,
                            seen.error().description());
        }
        return std::nullopt;
    }
    using enum FileObserver::Readable;
    if (seen->kind != platform::ItemKind::regularFile) {
        return rated(looker.observer.observation(url, *seen, no), {}, context, looker);
    }
    const platform::FileAccess access = looker.access.ask(name.c_str(), *seen);
    FileObservation observation =
        looker.observer.observation(url, *seen, access.isReadable ? yes : no);
    const Signs signs{.partOf = looker.observer.partOf(folder, observation),
                      .use = access.use,
                      .isGrowing = !in.isUnchanged(file, *seen, observation)};
    return rated(std::move(observation), signs, context, looker);
}

Findings Run::secondLook(const EligibleFolder& in, const SafetyPolicyContext& context,
                         Looker& looker) const {
    Findings findings;
    const auto folder = looker.open(in.url.path());
    if (folder) looker.access.begin(*folder);
    if (!folder && platform::hasVanished(folder.error())) return findings;
    std::size_t nameAt = 0;
    for (const EligibleFile& file : in.files) {
        if (cancel_.stop_requested()) break;
        const FileURL url =
            in.url.appending(std::string_view(in.names).substr(nameAt, file.nameLength));
        nameAt += file.nameLength;
        if (!folder) {
            findings.addGap(url, CoverageGapReason::metadataUnavailable,
                            folder.error().description());
            continue;
        }
        auto candidate = seenAgain(in, file, *folder, url, context, looker, findings);
        if (!candidate) continue;
        if (candidate->assessment.tier == RiskTier::protected_) {
            findings.hold(*candidate);
        } else {
            findings.confirmed.push_back({.candidate = *std::move(candidate), .file = &file});
        }
    }
    return findings;
}

/// Looks at every eligible file again, and holds those that are being written to or that somebody
/// has open. Files that are gone by now are eligible no more.
void Run::confirm(const SafetyPolicyContext& context) {
    now_ = options_.clock();
    std::unordered_map<SmartCleanupGroup*, std::size_t> counts;
    for (const EligibleFolder& in : eligible_) counts[&group(in.url)] += in.files.size();
    for (const auto& [group, count] : counts) group->candidates.reserve(count);
    Lookers lookers(home_, volumes_); // new ones: they remember nothing of the first look
    std::uint64_t done = 0;
    for (std::size_t first = 0; first < eligible_.size() && !cancel_.stop_requested();) {
        std::size_t end = first;
        for (std::size_t files = 0; end < eligible_.size() && files < maxFilesTogether; ++end) {
            files += eligible_[end].files.size();
        }
        tell(Phase::confirming, done, eligibleCount_, eligible_[first].firstPath());
        std::vector<Findings> found(end - first);
        lookers.forEach(found.size(), [&](std::size_t i, Looker& looker) {
            found[i] = secondLook(eligible_[first + i], context, looker);
        });
        for (Findings& findings : found) {
            EligibleFolder& in = eligible_[first++];
            done += in.files.size();
            SmartCleanupGroup& group = this->group(in.url);
            takeOver(findings, group);
            for (Findings::Confirmed& one : findings.confirmed) {
                addCandidate(std::move(one.candidate), *one.file, group);
            }
            in = {}; // makes room for the candidates
        }
    }
}

/// The group of what lies at or below the URL.
SmartCleanupGroup& Run::group(const FileURL& url) {
    // Whatever is looked at lies in the place of a rule, so one matches. No root of another rule
    // lies between the two: the walk passes over it.
    const CleanupRule& rule = *DeterministicSafetyPolicy::mostSpecificMatchingRule(url, rules_);
    const auto [at, isNew] = groups_.try_emplace(&rule);
    if (isNew) {
        const CleanupRuleSpec* spec = BuiltInRuleRegistry::spec(rule.id());
        at->second.ruleID = rule.id();
        at->second.title = BuiltInRuleRegistry::title(rule.id());
        at->second.rootURL = rule.rootURL();
        at->second.isHighYield = spec != nullptr && spec->isHighYield;
    }
    return at->second;
}

void Run::addCandidate(CleanupCandidate candidate, const EligibleFile& file,
                       SmartCleanupGroup& in) {
    const bool isFreed = names_.add(file.identity, candidate.observation.linkCount);
    SmartCleanupTotals& totals =
        candidate.assessment.tier == RiskTier::safeToReclaim ? in.safe : in.review;
    totals.add({.itemCount = 1,
                .byteCount = candidate.observation.byteCount,
                .freedByteCount = isFreed ? file.allocatedBytes : 0});
    // All of a group share one.
    std::optional<CleanupAuthorization> by;
    if (!in.candidates.empty()) by = in.candidates.front().authorization;
    if (!by) {
        by = CleanupAuthorization{
            authorization::BuiltInRule{.id = in.ruleID, .rootURL = in.rootURL}};
    }
    in.candidates.push_back(std::move(candidate).authorized(*std::move(by)));
}

SmartCleanupReport Run::report(Timestamp startedAt) {
    for (const bool isHighYield : {true, false}) {
        for (const CleanupRule& rule : rules_) {
            const auto found = groups_.find(&rule);
            if (found == groups_.end() || found->second.isHighYield != isHighYield) continue;
            // All of its files may be gone again.
            if (found->second.candidates.empty() && found->second.held.itemCount == 0) continue;
            sortForPeople(found->second.candidates);
            report_.groups.push_back(std::move(found->second));
        }
    }
    report_.startedAt = startedAt;
    report_.completedAt = options_.clock();
    return std::move(report_);
}

} // namespace

std::string SmartCleanupScan::description(const ScanError& error) {
    return std::visit(Describe{}, error);
}

SmartCleanupScan::SmartCleanupScan(FileURL home, LocalRuntimeSafetyContextProvider& contexts,
                                   const platform::Volumes& volumes, Options options)
    : home_(std::move(home)),
      contexts_(contexts),
      volumes_(volumes),
      options_(std::move(options)) {}

std::expected<SmartCleanupReport, SmartCleanupScan::ScanError>
SmartCleanupScan::run(const ProgressHandler& progress, const CancelToken& cancel) const {
    const Timestamp startedAt = options_.clock();
    const auto unavailable = [&] {
        return ContextUnavailable{contexts_.missing().value_or(MissingPiece::processes)};
    };
    const Context atFirst = contexts_.freshContext();
    if (atFirst == nullptr) return std::unexpected(unavailable());
    Run run(home_, volumes_, options_, progress, cancel);
    run.look(*atFirst);
    if (run.hasFoundAny()) {
        if (options_.betweenLooks) options_.betweenLooks();
        waitFor(options_.secondsBetweenLooks, cancel);
        if (cancel.stop_requested()) return std::unexpected(CancellationError{});
        const Context now = contexts_.freshContext();
        if (now == nullptr) return std::unexpected(unavailable());
        run.confirm(*now);
    }
    if (cancel.stop_requested()) return std::unexpected(CancellationError{});
    return run.report(startedAt);
}

} // namespace tidyro
