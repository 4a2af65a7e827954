#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Terminal/ArgumentReader.h"
#include "Terminal/CommandLine.h"

namespace tidyro {

/// Shows the whole result of a search for duplicates on a terminal:
///
///     Tidyro --find-duplicates <folder> [--min-size BYTES] [--include-system] [--json]
///
/// It lists every set of copies, and tells of each copy what is to become of it and why. Nothing is
/// moved or deleted. While it searches, standard error shows how far it is when that is a terminal.
struct DuplicatesCommandLine {
    struct Request {
        std::string folder; ///< absolute and standardised
        std::uint64_t minimumBytes = 1'000'000;
        bool includeSystem = false;
        bool asJSON = false;
        bool operator==(const Request&) const = default;
    };
    static const std::string_view usageText; ///< without a line break at its end

    [[nodiscard]] static CommandLineParse<Request> parse(ArgumentReader::Arguments arguments,
                                                         std::string_view home);

    /// Performs one request and returns the exit status.
    [[nodiscard]] static int run(const Request& request, const TextOutput& output);

    /// With the process's whole argument list. Returns only when the switch is not there; otherwise
    /// it ends the process.
    static void runIfAsked(ArgumentReader::Arguments arguments);
};

} // namespace tidyro
