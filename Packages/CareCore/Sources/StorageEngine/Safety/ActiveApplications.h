#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Processes/RunningApplications.h"

namespace tidyro {

/// Finds the folders that belong to running applications, so that nothing in them is cleaned.
///
/// In doubt it names one folder too many. A running interpreter (node, python, java) stands for
/// every tool that is written for it, unless it was started for a script that came with the system:
/// that is an application of its own, by the names on the way to the script. A program that the
/// table does not know has the folders that programs usually make from their names.
struct ActiveApplications {
    /// What people call one of the programs that a folder belongs to, by the folder's path below
    /// the home. Some of the folders may not exist.
    using Owners = std::map<std::string, std::string>;
    [[nodiscard]] static Owners owners(std::span<const platform::RunningApplication> running);

    /// The folders of all applications of the table, whether they run or not.
    [[nodiscard]] static std::vector<std::string> allFolders();

    /// One row of the table: how an application's processes are recognised, and where it keeps
    /// what must not change under it. Elements of a list are separated by "|".
    struct Known {
        /// Beginnings of the names of its executables and processes, in lower case. No letter may
        /// follow: "python" fits "python3.11" and "Python", but not "pythonista".
        std::string_view names;
        /// Bundle identifiers. An identifier that goes on after a full stop is a helper's and fits
        /// as well.
        std::string_view bundleIdentifiers;
        /// Folders below the home, each with all that is in it.
        std::string_view folders;
    };
    /// The table, for macOS and Linux at once: a folder of the other system does no harm. Programs
    /// that only make folders from their names are not in it.
    [[nodiscard]] static std::span<const Known> table();
};

} // namespace tidyro
