#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tidyro {

/// The whole result of a search for duplicates on a terminal:
///
///     Tidyro --find-duplicates <folder> [--min-size BYTES] [--include-system] [--json]
///
/// Every group with every copy, what is to become of it and why. Nothing is moved or deleted. While
/// it searches, standard error tells how far it is when that is a terminal. Exit statuses as those
/// of the command-line mode: 0 done, 1 stopped by an error, 64 malformed, 66 no such folder.
struct DuplicatesCommandLine {
    struct Request {
        std::string folder; ///< absolute and standardised
        std::uint64_t minimumBytes = 1;
        bool includeSystem = false;
        bool asJSON = false;
        bool operator==(const Request&) const = default;
    };
    static const std::string_view usageText; ///< without a line break at its end

    /// None when the switch is not among the arguments; the usage text when they are malformed.
    [[nodiscard]] static std::optional<std::expected<Request, std::string_view>>
    parse(std::span<const std::string> arguments, std::string_view home);

    /// With the process's whole argument list. Returns only when the switch is not there; otherwise
    /// it ends the process.
    static void runIfAsked(std::span<const std::string> arguments);
};

} // namespace tidyro
