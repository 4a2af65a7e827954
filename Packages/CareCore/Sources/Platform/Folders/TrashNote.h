#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Timestamp.h"

/// The small file that the Trash of freedesktop.org keeps of each item: where it lay, and when it
/// went.
///
///     const std::string text = trashNote("/home/ada/a b", {}, Timestamp::now());
///     const auto note = readTrashNote(text, {});
///     note->path      // "/home/ada/a b"
namespace tidyro::platform {

inline constexpr std::string_view trashNoteEnding = ".trashinfo";

/// The note of an item, in the time of the place where the person is. `top` is the top of the
/// Trash's volume, to which the path is noted relatively; empty for the person's own Trash.
[[nodiscard]] std::string trashNote(std::string_view path, std::string_view top, Timestamp at);

struct TrashNote {
    std::string path; ///< where it lay, absolute and standardised
    std::optional<Timestamp> deletedAt = std::nullopt;
    bool operator==(const TrashNote&) const = default;
};

/// Reads a note that anybody may have written. Of several lines of one kind the first counts. None
/// when it does not tell a place: without a path, with a malformed escape or a zero byte, and for a
/// path that goes up by "..". A relative path begins at `top`; without a top it tells no place.
[[nodiscard]] std::optional<TrashNote> readTrashNote(std::string_view text, std::string_view top);

} // namespace tidyro::platform
