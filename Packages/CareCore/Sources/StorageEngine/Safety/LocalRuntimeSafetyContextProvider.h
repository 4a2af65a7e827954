#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Timestamp.h"
#include "Platform/Mounts/Volumes.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/Processes/RunningProcesses.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// A piece of the machine without which nothing may be called safe, in the order in which they are
/// asked for.
enum class MissingPiece : std::uint8_t { volumes, applications, desktopFolders, processes };

constexpr RawValueTable<MissingPiece, 4> rawValues(RawValueTag<MissingPiece>) {
    using enum MissingPiece;
    return {{{{volumes, "volumes"},
              {applications, "applications"},
              {desktopFolders, "desktopFolders"},
              {processes, "processes"}}}};
}

/// What could not be found out, as a clause for people: "which applications are running".
[[nodiscard]] std::string_view whatIsUnknown(MissingPiece piece);

/// Looks at the machine for the safety policy: who runs the program, which volumes are internal,
/// what running applications own, what processes have in use, what is protected anyway.
///
///     LocalRuntimeSafetyContextProvider provider(platform::homeFolder());
///     const auto context = provider.context();
///     if (context == nullptr) return cannotVerify(provider.missing());
///     policy.classify(observation, {.rules = rules, .context = *context, .now = now});
///
/// A context is built in one pass over the machine. When a piece of it cannot be read, there is no
/// context, and nothing may be called safe; `missing` says which piece. Processes that guard
/// themselves or belong to other people are normal and do not count as such a piece.
///
/// Where the home or a place of the cleanup rules is reached through a link, a path in use counts
/// under both names. A folder that is mounted in the home and lies elsewhere as well is protected.
///
/// Any thread may call; a call waits for one that is under way.
class LocalRuntimeSafetyContextProvider {
  public:
    using Context = std::shared_ptr<const SafetyPolicyContext>; ///< null for none

    /// What the machine is asked through; all of it outlives the provider.
    struct Machine {
        const platform::Volumes& volumes;
        const platform::RunningProcesses& processes;
        const platform::RunningApplications& applications;
        std::function<Timestamp()> clock = Timestamp::now;
    };
    struct Options {
        /// Seconds for which `context` returns the same context again: long enough for a list that
        /// is being drawn, far too short for anything that touches a file.
        double maxAge = 5;
        std::vector<FileURL> protectedRoots = {}; ///< further ones
        /// Asked for each new context. Null for no tools.
        std::function<std::shared_ptr<const ToolStateFence>()> toolState = nullptr;
    };

    /// Asks the running system.
    explicit LocalRuntimeSafetyContextProvider(FileURL home);
    LocalRuntimeSafetyContextProvider(FileURL home, Options options);
    LocalRuntimeSafetyContextProvider(FileURL home, Machine machine, Options options);

    /// The last context. A new one when that has passed its age, or when the clock was set back.
    [[nodiscard]] Context context();
    /// A context of this moment, for whoever is about to touch something.
    [[nodiscard]] Context freshContext();

    struct Taken {
        Context context;
        Timestamp at; ///< when building it began
    };
    /// The last context, whatever its age. None before the first, and after one that could not be
    /// built.
    [[nodiscard]] std::optional<Taken> last() const;
    /// Why the last context that was asked for could not be built. None when it could.
    [[nodiscard]] std::optional<MissingPiece> missing() const;

  private:
    [[nodiscard]] Context rebuild();
    [[nodiscard]] std::expected<SafetyPolicyContext, MissingPiece> look() const;

    const FileURL home_;
    const Machine machine_;
    const Options options_;
    mutable std::mutex mutex_;
    std::optional<Taken> last_;
    std::optional<MissingPiece> missing_;
};

} // namespace tidyro
