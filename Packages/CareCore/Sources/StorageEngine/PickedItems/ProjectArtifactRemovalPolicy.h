#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string_view>
#include <variant>

#include "Base/Cancellation.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupAuthorization.h"
#include "CareDomain/CleanupPlan.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"

namespace tidyro {

/// Decides whether a folder that a project's tools generated may go to the Trash.
///
///     ProjectArtifactRemovalPolicy policy({.home = home,
///                                          .openedFolders = {workspace},
///                                          .context = provider.context(),
///                                          .volumes = volumes});
///     const auto entry = policy.planEntry(
///         {.artifact = {workspace, project, "node_modules"}, .measuredBytes = bytes, .at = now});
///     if (!entry) show(explanation(entry.error()));
///
/// Everything that is asked of a picked folder is asked of it too. Beyond that a project file has
/// to lie beside it, no repository may track anything in it, and nothing in it may have changed for
/// an hour: a build may be running. Made and used as a `DiskItemRemovalPolicy`.
class ProjectArtifactRemovalPolicy {
  public:
    enum class Reason : std::uint8_t {
        notInProject, ///< it does not lie directly inside its project, or that in its workspace
        notGenerated,
        tracked,
        historyUnknown,
    };
    using Refusal = std::variant<Reason, DiskItemRefusal>;

    /// Seconds without a change.
    static constexpr double quietPeriod = 3'600;

    explicit ProjectArtifactRemovalPolicy(DiskItemRemovalPolicy::Options options)
        : items_(std::move(options)) {}

    struct Question {
        authorization::ProjectArtifact artifact;
        std::uint64_t measuredBytes;
        std::optional<Timestamp> built = std::nullopt; ///< when the measurement began
        Timestamp at;                                  ///< now
        CancelToken cancel = {};
    };
    [[nodiscard]] std::expected<CleanupPlanEntry, Refusal> planEntry(const Question& question);

  private:
    DiskItemRemovalPolicy items_;
};

/// One or two plain sentences for people.
[[nodiscard]] std::string_view explanation(const ProjectArtifactRemovalPolicy::Refusal& refusal);

} // namespace tidyro
