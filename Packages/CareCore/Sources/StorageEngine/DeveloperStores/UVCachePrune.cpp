#include "StorageEngine/DeveloperStores/UVCachePrune.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "Base/Stopwatch.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/DeveloperStores/UVCacheFolder.h"
#include "StorageEngine/Tools/BoundedProcess.h"
#include "StorageEngine/Tools/ToolExecutableLocator.h"

namespace tidyro {

namespace {

using namespace uv_prune_status;
using Status = UVCachePruneOutcome::Status;
using Program = std::shared_ptr<const platform::OpenProgram>;

// These texts are given.
constexpr std::string_view notConfirmed =
    "This confirmation does not match the command on screen, or it is more than ten minutes old. "
    "Nothing was run.";
constexpr std::string_view programChanged =
    "The uv program changed after it was checked, so Tidyro did not run it.";
constexpr std::string_view cacheChanged =
    "The uv cache folder changed after it was measured, so Tidyro did not run uv.";
constexpr std::string_view holdsForeign =
    "That folder now holds something uv did not put there, so Tidyro did not run uv on it.";
constexpr std::string_view notRecorded =
    "Tidyro could not record what it was about to run, so it did not run it.";
constexpr std::string_view notStarted = "uv could not be started.";

constexpr std::string_view isLocked =
    "Another uv is using this cache at the moment, so Tidyro did not run uv. Try again when it has "
    "finished.";
constexpr std::string_view useUnknown =
    "Tidyro could not tell whether this cache is in use, so it did not run uv.";

constexpr std::string_view cacheVariable = "UV_CACHE_DIR";

struct OpenCache {
    platform::FolderDescriptor folder;
    platform::ItemIdentity identity;
    std::string realPath;
};

std::optional<OpenCache> openCache(const FileURL& url) {
    auto real = platform::realPath(url.path());
    if (!real) return std::nullopt;
    auto folder = platform::FolderDescriptor::openRoot(*real);
    if (!folder) return std::nullopt;
    const auto facts = folder->facts();
    if (!facts) return std::nullopt;
    return OpenCache{
        .folder = *std::move(folder), .identity = facts->identity, .realPath = *std::move(real)};
}

std::expected<std::optional<DeveloperStoreMeasurement>, CancellationError>
measureCache(const DeveloperStoreInventory& inventory, const FileURL& cache,
             const CancelToken& cancel) {
    return inventory.measure({.kind = DeveloperStoreKind::uvCache, .url = cache}, cancel);
}

/// An approval from before the proposal, and a clock that was set back, make the age unknown.
bool isConfirmed(const UVCachePruneProposal& proposal, const UVCachePruneApproval& approval,
                 Timestamp now) {
    const Timestamp last =
        std::min(proposal.expiresAt, proposal.createdAt.adding(UVCachePruneProposal::lifetime));
    const auto isInTime = [&](Timestamp at) { return proposal.createdAt <= at && at <= last; };
    return approval.proposalID == proposal.id && isInTime(approval.approvedAt) && isInTime(now);
}

/// Why the uv or the cache is no longer what was proposed. Otherwise the program is held open.
std::string_view changeSince(const UVCachePruneProposal& proposal, Program& program) {
    program = proposal.executable.open();
    // What starts by its path is not surely what was checked.
    if (program == nullptr || !program->isNative()) return programChanged;
    const auto cache = openCache(proposal.cacheURL);
    const platform::ItemIdentity measured{.device = proposal.cacheDeviceID,
                                          .inode = proposal.cacheInode};
    if (!cache || cache->identity != measured) return cacheChanged;
    if (!UVCacheFolder::holdsOnlyUV(cache->folder).value_or(false)) return holdsForeign;
    return {};
}

/// Why somebody who uses the cache might lose something. uv would wait for another uv for minutes,
/// and take no notice of the programs that it has started from the cache.
std::string useOf(const FileURL& cache, const platform::RunningProcesses& processes) {
    const auto real = platform::realPath(cache.path());
    if (!real) return std::string(useUnknown);
    const auto isTaken = platform::FileLock::isTaken(path::joined(*real, UVCacheFolder::lockName));
    if (!isTaken) return std::string(useUnknown);
    if (*isTaken) return std::string(isLocked);
    const auto found = UVCacheFolder::userOf(cache.path(), *real, processes);
    if (!found) return std::string(useUnknown);
    const auto& user = *found;
    if (!user) return {};
    const std::string& program = user->program;
    return fmt::format("A program runs from the uv cache or has something in it open ({}process "
                       "{}). uv could remove what it still needs, so Tidyro did not run uv.",
                       program.empty() ? "" : repairedUTF8(program) + ", ", user->pid);
}

BoundedProcess pruneProcess(const UVCachePruneProposal& proposal, const UVCachePruneRunner& runner,
                            Program program) {
    constexpr std::size_t maxKeptBytes = 65'536;
    constexpr double grace = 5;
    auto environment = BoundedProcess::defaultEnvironment(runner.userHome);
    // The default environment alone would lead uv to another folder than the measured one.
    environment[std::string(cacheVariable)] = proposal.cacheURL.path();
    return {.executable = proposal.executable.url,
            .arguments = {"cache", "prune"},
            .environment = std::move(environment),
            // uv takes settings from the folders above the one where it is started. Nobody but the
            // system's owner can put any there.
            .currentDirectory = FileURL::folder("/"),
            .timeout = runner.timeout,
            .outputLimit = maxKeptBytes,
            .terminationGrace = grace,
            .program = std::move(program)};
}

Status statusOf(const std::optional<BoundedProcess::Output>& output) {
    if (!output) return {Failed{std::string(notStarted)}};
    if (output->cancelled) return {Cancelled{}};
    if (output->timedOut) return {TimedOut{}};
    if (output->exitCode != 0) {
        return {Failed{fmt::format("uv exited with status {}", output->exitCode)}};
    }
    return {Completed{}};
}

/// What the log keeps of the end: the case and, after a failure, why and the first of what uv said.
std::string logResult(const Status& status, const std::optional<BoundedProcess::Output>& output) {
    constexpr std::size_t maxSaid = 1'000;
    std::string result;
    std::visit([&](const auto& one) { result = one.caseName; }, status.value);
    if (const auto* failed = std::get_if<Failed>(&status.value)) {
        result += ": " + failed->reason;
        if (output && !output->standardError.empty()) {
            result += ": " + repairedUTF8(output->standardError.substr(0, maxSaid));
        }
    }
    return result;
}

const platform::RunningProcesses& runningNow() {
    static const platform::LiveRunningProcesses processes;
    return processes;
}

} // namespace

std::string_view explanation(UVCachePruneObstacle obstacle) {
    switch (obstacle) {
    case UVCachePruneObstacle::uvNotFound: return "Tidyro found no uv program that it may run.";
    case UVCachePruneObstacle::cacheNotFound: return "Tidyro found no uv cache.";
    case UVCachePruneObstacle::foreignContents:
        return "The folder of the uv cache holds something uv did not put there, so Tidyro does "
               "not run uv on it.";
    case UVCachePruneObstacle::cancelled: return "Measuring the uv cache was cancelled.";
    }
    return {};
}

std::string UVCachePruneProposal::displayCommand() const {
    return std::string(nativeCommand(DeveloperStoreKind::uvCache));
}

std::expected<UVCachePruneProposal, UVCachePruneObstacle>
UVCachePruneProposal::make(const DeveloperStoreInventory& inventory, const CancelToken& cancel) {
    const auto uv = ToolExecutableLocator::findUV(inventory.userHome);
    if (!uv) return std::unexpected(UVCachePruneObstacle::uvNotFound);
    return make(inventory, *uv, cancel);
}

std::expected<UVCachePruneProposal, UVCachePruneObstacle>
UVCachePruneProposal::make(const DeveloperStoreInventory& inventory, const ValidatedExecutable& uv,
                           const CancelToken& cancel) {
    for (const DeveloperStoreLocation& location : inventory.locations()) {
        if (location.kind != DeveloperStoreKind::uvCache) continue;
        const auto cache = openCache(location.url);
        if (!cache) continue;
        // It was opened before it is measured: another folder in its place would be noticed.
        const auto measured = measureCache(inventory, location.url, cancel);
        if (!measured) return std::unexpected(UVCachePruneObstacle::cancelled);
        const auto& size = *measured;
        if (!size) continue; // the home itself, for one
        if (!UVCacheFolder::holdsOnlyUV(cache->folder).value_or(false)) {
            return std::unexpected(UVCachePruneObstacle::foreignContents);
        }
        const Timestamp now = Timestamp::now();
        return UVCachePruneProposal{.id = platform::randomUUID(),
                                    .executable = uv,
                                    .cacheURL = location.url,
                                    .cacheAllocatedBytesBefore = size->allocatedByteCount,
                                    .createdAt = now,
                                    .expiresAt = now.adding(lifetime),
                                    .cacheDeviceID = cache->identity.device,
                                    .cacheInode = cache->identity.inode};
    }
    return std::unexpected(UVCachePruneObstacle::cacheNotFound);
}

UVCachePruneOutcome UVCachePruneRunner::run(const UVCachePruneProposal& proposal,
                                            const UVCachePruneApproval& approval,
                                            const CancelToken& cancel) const {
    UVCachePruneOutcome outcome{.status = {Cancelled{}},
                                .cacheAllocatedBytesBefore = proposal.cacheAllocatedBytesBefore};
    const auto refuse = [&](std::string_view reason) {
        outcome.status = {Refused{std::string(reason)}};
        return outcome;
    };
    const Timestamp startedAt = Timestamp::now();
    if (!isConfirmed(proposal, approval, startedAt)) return refuse(notConfirmed);
    Program program;
    if (const auto change = changeSince(proposal, program); !change.empty()) return refuse(change);
    const std::string use =
        useOf(proposal.cacheURL, processes != nullptr ? *processes : runningNow());
    if (!use.empty()) return refuse(use);
    if (cancel.stop_requested()) return outcome;

    auto command = log.begin({.id = platform::randomUUID(),
                              .command = proposal.displayCommand(),
                              .executablePath = proposal.executable.url.path(),
                              .startedAt = startedAt});
    if (!command) return refuse(notRecorded);
    // The processes and a slow disk may have taken their time.
    if (const auto change = changeSince(proposal, program); !change.empty()) {
        static_cast<void>(command->finish("refused: " + std::string(change)));
        return refuse(change);
    }
    const Stopwatch watch;
    const auto output = pruneProcess(proposal, *this, std::move(program)).run(cancel);
    outcome.duration = watch.seconds();
    outcome.status = statusOf(output);
    // When the log cannot be written any more, the command is told as interrupted at the next
    // start. What uv did stays done.
    static_cast<void>(command->finish(logResult(outcome.status, output)));
    const DeveloperStoreInventory inventory{.userHome = userHome};
    const auto after = measureCache(inventory, proposal.cacheURL, cancel);
    if (output && after) {
        const auto& size = *after;
        if (size) outcome.cacheAllocatedBytesAfter = size->allocatedByteCount;
    }
    return outcome;
}

} // namespace tidyro
