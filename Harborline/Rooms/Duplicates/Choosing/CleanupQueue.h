#pragma once

#include <cstdint>
#include <string>

#include "Rooms/Duplicates/Choosing/PathSet.h"

namespace tidyro {

/// What waits to be removed, from all rooms: as much of it as the duplicates need. Nothing in it
/// has been touched yet; the removal itself, with its own checks, is its owner's. It belongs to the
/// thread of whoever uses it.
class CleanupQueue {
  public:
    CleanupQueue() = default;
    virtual ~CleanupQueue() = default;
    CleanupQueue(const CleanupQueue&) = delete;
    CleanupQueue& operator=(const CleanupQueue&) = delete;

    /// Puts a file in; true when it is in there afterwards. A queue may refuse.
    virtual bool stage(const std::string& path, std::uint64_t byteCount) = 0;
    /// Takes a file out; true when it is not in there afterwards, nor any folder that it lies in.
    /// False when it is too late, or when only the whole folder could be taken out.
    virtual bool unstage(const std::string& path) = 0;
    /// Everything that is in there, whichever room it came from.
    [[nodiscard]] virtual PathSet staged() const = 0;
};

} // namespace tidyro
