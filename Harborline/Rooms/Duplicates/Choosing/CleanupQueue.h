#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Base/StringTable.h"

namespace tidyro {

/// Files and folders by their absolute, standardised paths. A folder stands for all that is in it.
using PathSet = StringSet;

/// Whether the set holds the path or a folder that the path lies in.
[[nodiscard]] bool covers(const PathSet& paths, std::string_view path);

/// The files and folders that wait to be removed, whichever room put them there. The duplicates
/// room stages copies through this interface. Nothing that is staged has been touched yet; the
/// owner of the queue removes it, after checks of its own. Used by the thread that uses the model.
class CleanupQueue {
  public:
    CleanupQueue() = default;
    virtual ~CleanupQueue() = default;
    CleanupQueue(const CleanupQueue&) = delete;
    CleanupQueue& operator=(const CleanupQueue&) = delete;

    /// Puts a file in; true when it is in there afterwards. A queue may refuse.
    virtual bool stage(const std::string& path, std::uint64_t byteCount) = 0;
    /// Takes a file out; true when neither the file nor a folder that it lies in is in there
    /// afterwards. False when it is too late, or when only a whole folder could be taken out.
    virtual bool unstage(const std::string& path) = 0;
    /// Everything that is in there, whichever room it came from.
    [[nodiscard]] virtual PathSet staged() const = 0;
};

} // namespace tidyro
