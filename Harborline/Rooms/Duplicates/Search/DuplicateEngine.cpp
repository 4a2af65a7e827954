#include "Rooms/Duplicates/Search/DuplicateEngine.h"

#include <algorithm>
#include <utility>

#include "Base/Stopwatch.h"
#include "Rooms/Duplicates/Search/DuplicateGrouping.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/DuplicateProving.h"
#include "Rooms/Duplicates/Search/ReaderThreads.h"
#include "Rooms/Duplicates/Search/SampleLooks.h"
#include "Rooms/Duplicates/Search/SearchProgress.h"
#include "StorageEngine/AITools/AIToolFence.h"
#include "StorageEngine/Safety/LocalRuntimeSafetyContextProvider.h"

namespace tidyro {

namespace {

/// Threads that read small files. More did not make the disks that were tried any faster.
constexpr std::size_t maxSmallFileThreads = 16;

/// Carries out one search.
class DuplicateSearch {
  public:
    DuplicateSearch(const DuplicateSearchOptions& options,
                    const DuplicateEngine::Settings& settings,
                    const DuplicateEngine::ProgressHandler& progress, const CancelToken& cancel)
        : options_(options),
          settings_(settings),
          progress_(progress, settings.progressInterval),
          cancel_(cancel),
          smallFileThreads_({.atFirst = processorCount(),
                             .maxThreads = std::max(maxSmallFileThreads, processorCount()),
                             .cancel = cancel}),
          largeFileThreads_(
              {.atFirst = processorCount(), .maxThreads = processorCount() + 1, .cancel = cancel}) {
    }

    [[nodiscard]] std::expected<DuplicateReport, DuplicateEngine::Error>
    run(const DiskTree* scanned) {
        if (auto listed = list(scanned); !listed) return std::unexpected(listed.error());
        if (settings_.afterListing) settings_.afterListing();
        const Timestamp startedAt = Timestamp::now();
        const auto agreeing = SampleLooks(listing_, smallFileThreads_, progress_).findAgreeing();
        if (cancel_.stop_requested()) return std::unexpected(CancellationError{});

        DuplicateGrouping::Groups found;
        if (!agreeing.empty()) {
            auto proven =
                DuplicateProving(listing_, progress_, cancel_)
                    .run(agreeing, {.small = smallFileThreads_, .large = largeFileThreads_});
            if (cancel_.stop_requested()) return std::unexpected(CancellationError{});
            // What is in use is asked only now, when no thread of the search holds a file open.
            found = makeGroups(std::move(proven), runtimeContext(), startedAt);
            if (cancel_.stop_requested()) return std::unexpected(CancellationError{});
        }
        if (const auto shortage = listing_.shortage()) {
            return std::unexpected(DiskTreeScanner::Unreadable{
                .url = listing_.files().empty() ? options_.home : listing_.rootURL(),
                .error = *shortage});
        }
        return DuplicateReport{.groups = std::move(found.groups),
                               .filesLookedAt = std::ssize(listing_.files()),
                               .hardLinkedFiles = found.furtherNames,
                               .cloneOnlyGroups = found.cloneOnlyGroups,
                               .minimumBytes = options_.minimumBytes,
                               .roots = options_.roots,
                               .includedSystemVolumes = options_.includeSystemVolumes,
                               .duration = watch_.seconds(),
                               .finishedAt = Timestamp::now(),
                               .deniedFolders = listing_.deniedFolders(),
                               .unreadFiles = listing_.unreadFiles()};
    }

  private:
    using IfUnreadable = DuplicateListing::IfUnreadable;

    [[nodiscard]] std::expected<void, DuplicateEngine::Error> list(const DiskTree* scanned) {
        progress_.begin(DuplicateProgress::Phase::listing, 0, 0);
        if (scanned != nullptr) {
            listing_.add(*scanned, options_);
        } else if (const auto read = listAll(options_.roots, IfUnreadable::fail); !read) {
            return read;
        }
        if (options_.includeSystemVolumes) {
            if (const auto read = listAll(options_.systemVolumeRoots, IfUnreadable::skip); !read)
                return read;
        }
        if (cancel_.stop_requested()) return std::unexpected(CancellationError{});
        return {};
    }

    [[nodiscard]] std::expected<void, DuplicateEngine::Error> listAll(std::vector<FileURL> roots,
                                                                      IfUnreadable ifUnreadable) {
        // Outer roots go first. An inner one was then listed with its outer one, unless something
        // is mounted there or a folder on the way to it is closed.
        std::ranges::sort(roots, {}, [](const FileURL& root) { return root.path().size(); });
        for (const FileURL& root : roots) {
            if (listing_.hasReached(root)) continue;
            const auto read = listing_.read(
                root, ifUnreadable, options_,
                [&](const std::string& folder) { progress_.add(0, 0, [&] { return folder; }); },
                cancel_);
            if (!read) return std::unexpected(read.error());
        }
        return {};
    }

    [[nodiscard]] std::shared_ptr<const SafetyPolicyContext> runtimeContext() const {
        if (settings_.context) return settings_.context();
        const auto toolState = [home = options_.home] {
            return AIToolFence::find(AIToolHomeDiscovery::ofThisPerson(home));
        };
        return LocalRuntimeSafetyContextProvider(options_.home, {.toolState = toolState})
            .freshContext();
    }

    [[nodiscard]] DuplicateGrouping::Groups
    makeGroups(DuplicateProving::Result proven,
               const std::shared_ptr<const SafetyPolicyContext>& context,
               Timestamp startedAt) const {
        const platform::LiveVolumes volumes;
        DiskItemRemovalPolicy policy({.home = options_.home,
                                      .openedFolders = options_.roots,
                                      .context = context,
                                      .volumes = volumes});
        return DuplicateGrouping({.listing = listing_,
                                  .search = options_,
                                  .policy = policy,
                                  .context = context.get(),
                                  .startedAt = startedAt,
                                  .cancel = cancel_})
            .makeGroups(std::move(proven));
    }

    const Stopwatch watch_;
    const DuplicateSearchOptions& options_;
    const DuplicateEngine::Settings& settings_;
    SearchProgress progress_;
    const CancelToken& cancel_;
    ReaderThreads smallFileThreads_;
    ReaderThreads largeFileThreads_; ///< one more than processors, to read while the others hash
    DuplicateListing listing_;
};

} // namespace

std::string DuplicateEngine::description(const Error& error) {
    if (std::holds_alternative<CancellationError>(error)) {
        return "The search for duplicates was cancelled.";
    }
    return DiskTreeScanner::description(error);
}

std::expected<DuplicateReport, DuplicateEngine::Error>
DuplicateEngine::run(const DuplicateSearchOptions& options, const DiskTree* scanned,
                     const ProgressHandler& progress, const CancelToken& cancel) const {
    return DuplicateSearch(options, settings_, progress, cancel).run(scanned);
}

} // namespace tidyro
