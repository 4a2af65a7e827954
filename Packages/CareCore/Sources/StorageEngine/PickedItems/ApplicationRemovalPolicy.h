#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupPlan.h"
#include "Platform/Machine/OperatingSystem.h"
#include "Platform/Mounts/Volumes.h"
#include "Platform/Processes/RunningApplications.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Decides whether an application that a person chose may go to the Trash: the package of a macOS
/// application that is theirs and does not run. On Linux no application may, since the package
/// manager that installed it would still count on its files.
///
///     ApplicationRemovalPolicy policy({.home = home,
///                                      .context = provider.context(),
///                                      .volumes = volumes,
///                                      .applications = applications});
///     const auto entry = policy.planEntry({.bundle = url, .measuredBytes = bytes, .at = now});
///     if (!entry) show(explanation(entry.error()));
///
/// The whole package is looked through, and every doubt is a refusal. A policy remembers the
/// volumes, so make a new one before something is touched. It belongs to one thread.
class ApplicationRemovalPolicy {
  public:
    enum class Reason : std::uint8_t {
        installedOtherwise, ///< by a package manager, or with the system
        notAnApplication,
        anotherApplication, ///< than the one that was chosen
        running,
        notChecked,
    };
    using Refusal = std::variant<Reason, DiskItemRefusal>;

    struct Options {
        FileURL home;
        /// What is kept. Null when it is not known; then everything is refused.
        std::shared_ptr<const SafetyPolicyContext> context;
        const platform::Volumes& volumes; ///< asked by the constructor only
        const platform::RunningApplications& applications;
        OperatingSystem system = platform::operatingSystem();
    };
    explicit ApplicationRemovalPolicy(Options options);

    struct Question {
        FileURL bundle;
        /// The one that was read when the application was chosen; none before that.
        std::optional<std::string> bundleIdentifier = std::nullopt;
        std::uint64_t measuredBytes;
        std::optional<Timestamp> built = std::nullopt; ///< when the measurement began
        Timestamp at;                                  ///< now
        CancelToken cancel = {};
    };
    [[nodiscard]] std::expected<CleanupPlanEntry, Refusal> planEntry(const Question& question);

  private:
    [[nodiscard]] std::optional<Reason> reasonAgainst(const FileURL& bundle,
                                                      const std::string& identifier) const;
    [[nodiscard]] std::expected<FileObservation, DiskItemRefusal>
    lookThrough(const Question& question);

    Options options_;
    FileObserver observer_;
};

/// One or two plain sentences for people.
[[nodiscard]] std::string_view explanation(const ApplicationRemovalPolicy::Refusal& refusal);

} // namespace tidyro
