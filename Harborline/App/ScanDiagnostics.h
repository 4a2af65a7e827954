#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Rooms/Find/Services/Listing/FindHitListing.h"
#include "Terminal/ArgumentReader.h"
#include "Terminal/CommandLine.h"

namespace tidyro {

/// Measures what the application's rooms do, phase by phase:
///
///     Tidyro --diagnose-scan <folder>
///     Tidyro --diagnose-find <folder> [options]   queries line by line from standard input
///     Tidyro --diagnose-duplicates <folder>
///
/// Nothing of the person's is moved or deleted. `find` opens the saved index of the folder and
/// makes it true. When the saved index is of no use for the folder, it builds one and saves it in
/// place of that.
struct ScanDiagnostics {
    enum class Subject : std::uint8_t { scan, find, duplicates };

    struct Request {
        Subject subject;
        std::string folder;  ///< absolute and standardised
        bool isAsIs = false; ///< `find` takes the saved index as it is
        /// `find` writes all that matched, and nothing else.
        struct Listing {
            FindHitForm form = FindHitForm::line;
            FindHitOrder order = FindHitOrder::best;
            std::optional<std::size_t> limit = std::nullopt;
            bool operator==(const Listing&) const = default;
        };
        std::optional<Listing> listing = std::nullopt;
        bool operator==(const Request&) const = default;
    };
    static const std::string_view usageText; ///< without a line break at its end

    [[nodiscard]] static CommandLineParse<Request> parse(ArgumentReader::Arguments arguments,
                                                         std::string_view home);

    /// What `find` reads beside the folder.
    struct FindInputs {
        /// The next query; none at the end.
        std::function<std::optional<std::string>()> nextQuery = [] { return std::nullopt; };
        /// Where the index is saved; absent: its own place.
        std::optional<FileURL> indexFile = std::nullopt;
        /// Is told how far a look at the folders is that takes longer than half a second.
        std::function<void(std::string_view)> showProgress = nullptr;
        /// Is told what a person should know of a listing that has no place in it.
        std::function<void(std::string_view)> showNote = nullptr;
    };
    /// Performs one request and returns the exit status.
    [[nodiscard]] static int run(const Request& request, const TextOutput& output,
                                 const FindInputs& inputs);

    /// With the process's whole argument list. Returns only when no switch is there; otherwise it
    /// ends the process.
    static void runIfAsked(ArgumentReader::Arguments arguments);
};

/// The switches.
constexpr RawValueTable<ScanDiagnostics::Subject, 3>
rawValues(RawValueTag<ScanDiagnostics::Subject>) {
    using enum ScanDiagnostics::Subject;
    return {{{{scan, "--diagnose-scan"},
              {find, "--diagnose-find"},
              {duplicates, "--diagnose-duplicates"}}}};
}

} // namespace tidyro
