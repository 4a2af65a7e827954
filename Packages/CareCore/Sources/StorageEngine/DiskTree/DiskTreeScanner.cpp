#include "StorageEngine/DiskTree/DiskTreeScanner.h"

#include <algorithm>
#include <cerrno>
#include <stop_token>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "Platform/Folders/FolderReading.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/DiskTree/DiskTreeWalk.h"

namespace tidyro {

namespace {

constexpr std::int64_t minWorkers = 4;
constexpr std::int64_t maxWorkers = 12;

std::int64_t defaultWorkerCount() {
    return std::clamp<std::int64_t>(std::thread::hardware_concurrency(), minWorkers, maxWorkers);
}

struct Describe {
    std::string operator()(const DiskTreeScanner::NotADirectory& error) const {
        return fmt::format("{} is not a folder.", error.url.path());
    }
    std::string operator()(const DiskTreeScanner::Unreadable& error) const {
        return fmt::format(fmt::runtime(platform::systemText(SystemText::folderWasNotRead)),
                           fmt::arg("path", error.url.path()),
                           fmt::arg("reason", error.error.description()));
    }
    std::string operator()(const CancellationError&) const { return "The scan was cancelled."; }
};

} // namespace

std::string DiskTreeScanner::description(const ScanError& error) {
    return std::visit(Describe{}, error);
}

DiskTreeScanner::DiskTreeScanner(std::optional<std::int64_t> workers, double interval)
    : workerCount(std::max<std::int64_t>(workers.value_or(defaultWorkerCount()), 1)),
      standInCount(workers ? 0 : maxWorkers - workerCount),
      progressInterval(interval) {}

std::expected<DiskTree, DiskTreeScanner::ScanError>
DiskTreeScanner::scan(const FileURL& url, const ProgressHandler& progress,
                      const CancelToken& cancel) const {
    auto root = platform::FolderDescriptor::openRoot(url.path());
    if (!root && root.error().code == ENOTDIR) return std::unexpected(NotADirectory{url});
    if (!root) return std::unexpected(Unreadable{url, root.error()});
    DiskTreeWalk walk(
        {.rootURL = url,
         .walk = {.root = std::move(*root),
                  .rootPath = url.path(),
                  .threadName = "Tidyro disk scan",
                  .workerCount = static_cast<std::size_t>(std::max<std::int64_t>(workerCount, 1)),
                  .standInCount = static_cast<std::size_t>(std::max<std::int64_t>(standInCount, 0)),
                  .skipping = skipping,
                  .skippingContentsOf = skippingContentsOf},
         .carryingLast = carryingLast,
         .progressInterval = progressInterval,
         .progressHandler = progress,
         .afterBulkRead = afterBulkRead});
    const std::stop_callback cancelling(cancel, [&walk] { walk.cancel(); });
    return walk.run();
}

DiskTreeScanner::GuardedFolders DiskTreeScanner::privacyGuardedFolders(const FileURL& home) {
    GuardedFolders guarded;
    for (const char* place : {"Library/Mobile Documents", "Library/CloudStorage"}) {
        guarded.skipping.insert(home.appending(place).path());
    }
    for (const char* place : {"Library/Containers", "Library/Group Containers"}) {
        guarded.skippingContentsOf.insert(home.appending(place).path());
    }
    return guarded;
}

} // namespace tidyro
