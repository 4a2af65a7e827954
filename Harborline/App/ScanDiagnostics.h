#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/FileURL.h"

namespace tidyro {

/// Measures what the application's rooms do, phase by phase:
///
///     Tidyro --diagnose-scan <folder>
///     Tidyro --diagnose-find <folder>        queries line by line from standard input
///     Tidyro --diagnose-duplicates <folder>
///
/// Nothing is moved or deleted. `find` opens the saved index of the folder, or builds and saves it
/// in place of the one there is. Exit statuses as those of the command-line mode.
struct ScanDiagnostics {
    enum class Subject : std::uint8_t { scan, find, duplicates };

    struct Request {
        Subject subject;
        std::string folder; ///< absolute and standardised
        bool operator==(const Request&) const = default;
    };
    static const std::string_view usageText; ///< without a line break at its end

    /// None when no switch is among the arguments; the usage text when they are malformed.
    [[nodiscard]] static std::optional<std::expected<Request, std::string_view>>
    parse(std::span<const std::string> arguments, std::string_view home);

    struct Surroundings {
        /// Receives each line of the output, line break included.
        std::function<void(std::string_view)> write;
        /// The next query; none at the end.
        std::function<std::optional<std::string>()> read = [] { return std::nullopt; };
        /// Names of files are shown with visible escapes, because a terminal reads them.
        bool escapesNames = false;
        /// Where the index is saved; absent: its own place.
        std::optional<FileURL> indexFile = std::nullopt;
    };
    [[nodiscard]] static int run(const Request& request, const Surroundings& surroundings);

    /// With the process's whole argument list. Returns only when no switch is there; otherwise it
    /// ends the process.
    static void runIfAsked(std::span<const std::string> arguments);
};

} // namespace tidyro
