#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Base/Cancellation.h"
#include "Base/Cases.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "Platform/Processes/RunningProcesses.h"
#include "StorageEngine/DeveloperStores/DeveloperStoreInventory.h"
#include "StorageEngine/Tools/ToolCommandLog.h"
#include "StorageEngine/Tools/ValidatedExecutable.h"

/// Shrinking the cache of uv with uv's own command. It is the one store of another tool that Tidyro
/// acts on, and only uv removes anything. First a proposal is made and shown, then the person
/// confirms it, then it runs:
///
///     const auto proposal = UVCachePruneProposal::make(inventory);
///     if (!proposal) return std::string(explanation(proposal.error()));
///     // ... the person sees proposal->displayCommand() and UVCachePruneProposal::explanation
///     const UVCachePruneRunner runner{.log = ToolCommandLog::applicationDefault(),
///                                     .userHome = inventory.userHome};
///     const UVCachePruneOutcome outcome = runner.run(
///         *proposal, {.proposalID = proposal->id, .approvedAt = Timestamp::now()}, token);
namespace tidyro {

/// Why nothing can be proposed.
enum class UVCachePruneObstacle : std::uint8_t {
    uvNotFound,
    cacheNotFound,
    foreignContents, ///< the folder holds something that is not uv's, or cannot be read
    cancelled,
};
[[nodiscard]] std::string_view explanation(UVCachePruneObstacle obstacle);

/// What a person is asked to confirm. It holds for ten minutes, for one uv and one cache.
struct UVCachePruneProposal {
    UUID id;
    ValidatedExecutable executable;
    /// As uv knows the folder: a link may lead from here to the cache.
    FileURL cacheURL;
    std::uint64_t cacheAllocatedBytesBefore;
    Timestamp createdAt;
    Timestamp expiresAt;
    std::uint64_t cacheDeviceID;
    std::uint64_t cacheInode;

    bool operator==(const UVCachePruneProposal&) const = default;

    static constexpr double lifetime = 600; ///< seconds
    /// Stands beside the command.
    static constexpr std::string_view explanation =
        "uv removes only cache entries nothing refers to any more, and cached environments. uv "
        "decides which entries those are, so Tidyro cannot list them in advance; the size before "
        "and after is measured. Anything removed is downloaded or built again when a project needs "
        "it.";
    [[nodiscard]] std::string displayCommand() const;

    /// Looks for uv in the inventory's home and measures the first cache of uv that is there. It
    /// takes as long as measuring that store.
    [[nodiscard]] static std::expected<UVCachePruneProposal, UVCachePruneObstacle>
    make(const DeveloperStoreInventory& inventory, const CancelToken& cancel = {});
    /// The same with a uv that was found already.
    [[nodiscard]] static std::expected<UVCachePruneProposal, UVCachePruneObstacle>
    make(const DeveloperStoreInventory& inventory, const ValidatedExecutable& uv,
         const CancelToken& cancel = {});
};

/// That a person has confirmed a proposal.
struct UVCachePruneApproval {
    UUID proposalID;
    Timestamp approvedAt;
};

namespace uv_prune_status {

/// Nothing was run.
struct Refused {
    std::string reason; ///< for people

    static constexpr std::string_view caseName = "refused";
    static constexpr auto fields() { return fieldList<Refused>(field("_0", &Refused::reason)); }
    bool operator==(const Refused&) const = default;
};

/// uv did not start, or said that it could not do its work.
struct Failed {
    std::string reason; ///< for people

    static constexpr std::string_view caseName = "failed";
    static constexpr auto fields() { return fieldList<Failed>(field("_0", &Failed::reason)); }
    bool operator==(const Failed&) const = default;
};

struct Completed {
    static constexpr std::string_view caseName = "completed";
    static constexpr auto fields() { return fieldList<Completed>(); }
    bool operator==(const Completed&) const = default;
};

struct TimedOut {
    static constexpr std::string_view caseName = "timedOut";
    static constexpr auto fields() { return fieldList<TimedOut>(); }
    bool operator==(const TimedOut&) const = default;
};

/// Before uv started or while it ran. What it had removed by then is gone.
struct Cancelled {
    static constexpr std::string_view caseName = "cancelled";
    static constexpr auto fields() { return fieldList<Cancelled>(); }
    bool operator==(const Cancelled&) const = default;
};

} // namespace uv_prune_status

struct UVCachePruneOutcome {
    struct Status {
        using Cases = std::variant<uv_prune_status::Refused, uv_prune_status::Failed,
                                   uv_prune_status::Completed, uv_prune_status::TimedOut,
                                   uv_prune_status::Cancelled>;
        Cases value;
        bool operator==(const Status&) const = default;
    };

    Status status;
    std::uint64_t cacheAllocatedBytesBefore; ///< as the proposal told
    /// None when uv was not run, when the cache cannot be measured any more, and once cancelled.
    std::optional<std::uint64_t> cacheAllocatedBytesAfter = std::nullopt;
    double duration = 0; ///< seconds that uv ran
};

/// Runs a proposal that was confirmed. Any thread may; it blocks until uv has ended.
struct UVCachePruneRunner {
    double timeout = 600; ///< seconds
    ToolCommandLog log;
    FileURL userHome;
    /// Asked who uses the cache; none for the processes of the running system. It must outlive the
    /// runner.
    const platform::RunningProcesses* processes = nullptr;

    /// Checks everything again that the proposal was made from, and that nobody uses the cache.
    /// Each refusal comes before uv starts. Cancelling ends uv and what it has started.
    [[nodiscard]] UVCachePruneOutcome run(const UVCachePruneProposal& proposal,
                                          const UVCachePruneApproval& approval,
                                          const CancelToken& cancel = {}) const;
};

} // namespace tidyro
