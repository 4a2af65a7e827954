#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "Base/SystemError.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Folders/FolderChanges.h"

/// Small files in open folders, such as the notes that a Trash keeps of its items. No path is
/// followed. The caller flushes the folder, or its volume when a batch is done.
namespace tidyro::platform {

enum class FileFlush : std::uint8_t {
    withVolume, ///< not at all: the caller flushes the whole volume
    now,        ///< the file's bytes, for a caller that flushes single folders
};

/// Makes a file with mode 0600. `targetTaken` when the name is in use; on any other failure the
/// file is gone again.
[[nodiscard]] FolderChanges::Changed makeFileIn(const EntryName& at, std::string_view bytes,
                                                ChangeGate& gate = ChangeGate::open(),
                                                FileFlush flush = FileFlush::withVolume);

/// Puts a new file in the place of another one, or of none.
[[nodiscard]] FolderChanges::Changed replaceFileIn(const EntryName& at, std::string_view bytes,
                                                   ChangeGate& gate = ChangeGate::open());

/// A whole regular file. A link is not followed (ELOOP); EINVAL for anything else, and EFBIG for
/// more than `maxByteCount` bytes.
[[nodiscard]] std::expected<std::string, SystemError> readFileIn(const EntryName& at,
                                                                 std::size_t maxByteCount);

/// Where a symbolic link leads, as it was written; EINVAL for anything else.
[[nodiscard]] std::expected<std::string, SystemError> linkTargetIn(const EntryName& at);

} // namespace tidyro::platform
