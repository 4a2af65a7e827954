#pragma once

#include <expected>
#include <optional>
#include <string>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Platform/Folders/Trash.h"
#include "StorageEngine/Trash/CleanupMutationError.h"

namespace tidyro {

/// Moves one item to the Trash and tells where it lies there.
class TrashMover {
  public:
    virtual ~TrashMover() = default;
    [[nodiscard]] virtual std::expected<FileURL, CleanupMutationError>
    moveToTrash(const FileURL& url) = 0;
};

/// The person's Trash. A cleanup of many items uses `platform::Trash` itself, which holds folders
/// open and flushes once for all; this is for one item, and it is on the disk for good when the
/// call returns.
///
///     SystemTrashMover mover;
///     const auto moved = mover.moveToTrash(url);
///     if (!moved) show(moved.error().description());
///
/// The item that is found at the path when the call begins is moved, or none. Used by one thread.
class SystemTrashMover final : public TrashMover {
  public:
    explicit SystemTrashMover(platform::Trash::Options options = {});
    [[nodiscard]] std::expected<FileURL, CleanupMutationError>
    moveToTrash(const FileURL& url) override;

  private:
    platform::Trash trash_;
};

/// Why the Trash refuses an item, as the middle of a sentence: "its folder is read-only, so it
/// cannot be moved to the Trash". None when there is nothing to say but that it failed.
struct TrashRefusalDiagnosis {
    [[nodiscard]] static std::optional<std::string> reason(const platform::TrashError& error);
    /// The error of one item: one that is gone is told as such.
    [[nodiscard]] static CleanupMutationError mutationError(const platform::TrashError& error);
};

/// The plain reason in an error of the system; none for one that has none.
[[nodiscard]] std::optional<std::string> appAuthoredFileSystemFailureReason(SystemError error);
/// The same for an item that could not be moved: looks at it, when it was not permitted.
[[nodiscard]] std::optional<std::string> appAuthoredMoveFailureReason(SystemError error,
                                                                      const FileURL& url);

} // namespace tidyro
