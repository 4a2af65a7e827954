#include "Rooms/Find/Services/Building/FindIndexBuilder.h"

#include <algorithm>
#include <cerrno>
#include <stop_token>
#include <utility>

#include <fmt/format.h>

#include "Platform/Folders/FolderReading.h"
#include "Rooms/Find/Services/Building/FindIndexWalk.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

namespace {

struct DescribeBuildError {
    std::string operator()(FindIndexBuilder::NotADirectory /*error*/) const {
        return "This is not a folder.";
    }
    std::string operator()(const FindIndexBuilder::Unreadable& error) const {
        return fmt::format("The folder could not be read ({}).", error.error.description());
    }
    std::string operator()(FindIndexBuilder::TooLarge /*error*/) const {
        return "There are more names than an index holds.";
    }
    std::string operator()(const CancellationError& /*error*/) const {
        return "The building of the index was cancelled.";
    }
};

} // namespace

std::string FindIndexBuilder::description(const Error& error) {
    return std::visit(DescribeBuildError{}, error);
}

std::expected<FindIndexStorage, FindIndexBuilder::Error>
FindIndexBuilder::run(const ProgressHandler& progress, const CancelToken& cancel) const {
    auto root = platform::FolderDescriptor::openRoot(options_.rootPath);
    if (!root && root.error().code == ENOTDIR) return std::unexpected(NotADirectory{});
    if (!root) return std::unexpected(Unreadable{root.error()});

    // The number of threads that suits the machine is the same for a tree and an index.
    const DiskTreeScanner scanner =
        options_.workerCount < 1 ? DiskTreeScanner() : DiskTreeScanner(options_.workerCount);
    std::set<std::string> skipping = options_.skipping;
    skipping.insert(options_.excludedPaths.begin(), options_.excludedPaths.end());
    FindIndexWalk walk({.walk = {.root = std::move(*root),
                                 .rootPath = options_.rootPath,
                                 .threadName = "Tidyro name index",
                                 .workerCount = static_cast<std::size_t>(scanner.workerCount),
                                 .standInCount = static_cast<std::size_t>(
                                     std::max<std::int64_t>(scanner.standInCount, 0)),
                                 .skipping = std::move(skipping),
                                 .skippingContentsOf = options_.skippingContentsOf},
                        .marksSystemFolders = options_.marksSystemFolders,
                        .progress = progress});
    const std::stop_callback cancelling(cancel, [&walk] { walk.cancel(); });
    return walk.run();
}

} // namespace tidyro
