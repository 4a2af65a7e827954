#pragma once

#include <span>
#include <string_view>

namespace tidyro {

/// One row of the table of applications: how its processes are recognised, and where it keeps what
/// must not change under it. Lists are separated by "|".
struct KnownApplication {
    /// Beginnings of the names of its executables and processes, in lower case. A name is taken
    /// when no letter follows: "python" takes "python3.11" and "Python", but not "pythonista".
    std::string_view names;
    /// Bundle identifiers; those of its helpers, which go on after a full stop, are taken as well.
    std::string_view bundleIdentifiers;
    /// Folders below the home, on macOS and on Linux; each counts with all that is in it.
    std::string_view folders;
};

/// The table, for macOS and Linux at once: what only one of them has does no harm on the other.
/// Programs that make folders from their names alone are not in it.
[[nodiscard]] std::span<const KnownApplication> knownApplications();

} // namespace tidyro
