#include "StorageEngine/Suggestions/SmartCleanupScan.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "CareDomain/FileFingerprint.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "StorageEngine/Suggestions/CleanupPlaceWalk.h"

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

/// A file that the first look found eligible.
using EligibleFile = CleanupPlaceWalk::Found;

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

/// Asks who has a file open by the file itself. Files of one folder are asked for one after
/// another, so the folder stays open from one to the next.
class UseByFile {
  public:
    [[nodiscard]] platform::FileUse use(const FileURL& file) {
        const std::string_view parent = path::parent(file.path());
        if (parent != path_) {
            path_ = parent;
            auto opened = platform::FolderDescriptor::openRoot(path_);
            folder_ = opened ? *std::move(opened) : platform::FolderDescriptor();
        }
        if (!folder_.isOpen()) return platform::FileUse::unknown;
        return platform::fileUse(folder_, std::string(file.lastComponent()).c_str());
    }

  private:
    std::string path_;
    platform::FolderDescriptor folder_;
};

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
    [[nodiscard]] bool hasFoundAny() const { return !eligible_.empty(); }
    void confirm(const SafetyPolicyContext& context);
    [[nodiscard]] SmartCleanupReport report(Timestamp startedAt);

  private:
    using Phase = SmartCleanupScan::Progress::Phase;

    [[nodiscard]] std::vector<CleanupPlace> openPlaces();
    void walk(const CleanupPlace& place, std::span<const CleanupPlace> places,
              const SafetyPolicyContext& context);
    /// What the second look saw of a file.
    struct Seen {
        FileObservation observation;
        PartOf partOf = PartOf::nothing;
        platform::FileUse use = platform::FileUse::unknown;
    };

    [[nodiscard]] CleanupCandidate rated(Seen file, const SafetyPolicyContext& context,
                                         FolderResolver& folders) const;
    [[nodiscard]] std::vector<Seen> secondLook(SafetyPolicyFacts& facts);
    void addCandidate(CleanupCandidate candidate, const EligibleFile& file);
    void hold(const CleanupCandidate& candidate);
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
    std::vector<EligibleFile> eligible_;
    bool isFull_ = false; ///< no further candidate fits
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

CleanupCandidate Run::rated(Seen file, const SafetyPolicyContext& context,
                            FolderResolver& folders) const {
    using enum DeterministicSafetyPolicy::AgeCount;
    return policy_.classify(std::move(file.observation), {.rules = rules_,
                                                          .context = context,
                                                          .now = options_.clock(),
                                                          .folders = &folders,
                                                          .partOf = file.partOf,
                                                          .ageCount = sinceModificationAndCreation,
                                                          .use = file.use});
}

void Run::walk(const CleanupPlace& place, std::span<const CleanupPlace> places,
               const SafetyPolicyContext& context) {
    FileObserver observer(home_, volumes_);
    FolderResolver folders;
    const auto take = [&](CleanupPlaceWalk::Found found) {
        // The second look finds out the rest: most files never come that far. But a repository may
        // be a tool's own checkout.
        Seen seen{.observation = std::move(found.observation)};
        if (seen.observation.isInProjectRepository) {
            seen.partOf = observer.partOf(seen.observation);
        }
        CleanupCandidate candidate = rated(std::move(seen), context, folders);
        if (candidate.assessment.tier == RiskTier::protected_) {
            hold(candidate);
            return true;
        }
        if (eligible_.size() >= options_.budget.candidates) {
            isFull_ = true;
            leaveOut(place);
            return false;
        }
        found.observation = std::move(candidate.observation);
        eligible_.push_back(std::move(found));
        return true;
    };
    const CleanupPlaceWalk::Options walkOptions{
        .places = places,
        .roots = roots_,
        .protectedRoots = context.additionalProtectedRootIndex(),
        .observer = observer,
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
    report_.entriesRead += walk.entriesRead();
}

void Run::leaveOut(const CleanupPlace& place) {
    report_.addGap({.url = place.rule->rootURL(),
                    .reason = CoverageGapReason::scanBudgetExceeded,
                    .detail = "There is more to clean than one scan takes in. Clean what was found "
                              "and scan again."});
}

void Run::look(const SafetyPolicyContext& context) {
    const std::vector<CleanupPlace> places = openPlaces();
    for (const CleanupPlace& place : places) {
        if (cancel_.stop_requested()) return;
        if (isFull_) {
            leaveOut(place);
            continue;
        }
        walk(place, places, context);
        ++placesDone_;
    }
}

/// Looks at every eligible file again, and notes in `facts` the files that are being written to or
/// that somebody has open. Files that are gone by now are eligible no more.
std::vector<Run::Seen> Run::secondLook(SafetyPolicyFacts& facts) {
    // A new one: it remembers nothing of the first look.
    FileObserver observer(home_, volumes_);
    UseByFile useByFile;
    std::vector<Seen> again;
    again.reserve(eligible_.size());
    std::erase_if(eligible_, [&](const EligibleFile& file) {
        if (cancel_.stop_requested()) return true;
        const FileURL& url = file.observation.url;
        tell(Phase::confirming, again.size(), eligible_.size(), url.path());
        auto seen = observer.observation(url);
        if (!seen) {
            if (!platform::hasVanished(seen.error())) {
                report_.addGap({.url = url,
                                .reason = CoverageGapReason::metadataUnavailable,
                                .detail = seen.error().description()});
            }
            return true;
        }
        if (!FileFingerprint::fromObservation(file.observation).matches(*seen)) {
            facts.activelyGrowingPaths.insert(url.path());
        }
        Seen now{.observation = *std::move(seen)};
        if (now.observation.kind == FileKind::regularFile) {
            now.use = useByFile.use(url);
            now.partOf = observer.partOf(now.observation);
        }
        if (now.use == platform::FileUse::inUse) facts.openByProcessPaths.insert(url.path());
        again.push_back(std::move(now));
        return false;
    });
    return again;
}

void Run::confirm(const SafetyPolicyContext& context) {
    SafetyPolicyFacts facts = context.facts();
    std::vector<Seen> again = secondLook(facts);
    const SafetyPolicyContext now = context.with(std::move(facts));
    FolderResolver folders;
    for (std::size_t i = 0; i < again.size() && !cancel_.stop_requested(); ++i) {
        addCandidate(rated(std::move(again[i]), now, folders), eligible_[i]);
    }
}

SmartCleanupGroup& Run::group(const FileURL& url) {
    // Every file that is looked at lies in the place of a rule, so one matches.
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

void Run::hold(const CleanupCandidate& candidate) {
    SmartCleanupGroup& in = group(candidate.observation.url);
    in.held.add({.itemCount = 1, .byteCount = candidate.observation.byteCount});
    for (const EvidenceCode code : candidate.assessment.evidence.codes) ++in.heldBecause[code];
}

void Run::addCandidate(CleanupCandidate candidate, const EligibleFile& file) {
    if (candidate.assessment.tier == RiskTier::protected_) {
        hold(candidate);
        return;
    }
    SmartCleanupGroup& in = group(candidate.observation.url);
    const bool isFreed = names_.add(file.identity, candidate.observation.linkCount);
    SmartCleanupTotals& totals =
        candidate.assessment.tier == RiskTier::safeToReclaim ? in.safe : in.review;
    totals.add({.itemCount = 1,
                .byteCount = candidate.observation.byteCount,
                .freedByteCount = isFreed ? file.allocatedBytes : 0});
    in.candidates.push_back(std::move(candidate).authorized(
        CleanupAuthorization{authorization::BuiltInRule{.id = in.ruleID, .rootURL = in.rootURL}}));
}

SmartCleanupReport Run::report(Timestamp startedAt) {
    for (const bool isHighYield : {true, false}) {
        for (const CleanupRule& rule : rules_) {
            const auto found = groups_.find(&rule);
            if (found == groups_.end() || found->second.isHighYield != isHighYield) continue;
            std::ranges::sort(found->second.candidates,
                              [](const CleanupCandidate& a, const CleanupCandidate& b) {
                                  if (a.assessment.tier != b.assessment.tier) {
                                      return a.assessment.tier < b.assessment.tier;
                                  }
                                  if (a.observation.byteCount != b.observation.byteCount) {
                                      return a.observation.byteCount > b.observation.byteCount;
                                  }
                                  return a.id().rawValue < b.id().rawValue;
                              });
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
