#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"

namespace tidyro {

/// The same executable from a terminal: `Tidyro --cli <command> <folder> [options]`.
///
/// It reads, times and reports what the application would show, and never moves or deletes
/// anything. Results go to standard output, the usage text to standard error. Exit statuses: 0
/// done; 1 stopped by an error; 64 malformed arguments; 66 no such folder.
struct CommandLineMode {
    enum class Command : std::uint8_t { scan, duplicates, index, snapshot };

    struct Request {
        Command command;
        std::string path;          ///< the folder, absolute and standardised
        std::int64_t largest = 10; ///< how many of the largest items `scan` lists, 1...1000
        std::uint64_t minimumBytes = 1'000'000; ///< what `duplicates` looks at, at least 1
        bool includeSystem = false;             ///< whether `duplicates` reads system volumes too
        std::vector<std::string> queries = {};  ///< what `index` times, in this order
        bool operator==(const Request&) const = default;
    };

    struct Usage { ///< asked for, but malformed
        std::string_view text;
        bool operator==(const Usage&) const = default;
    };
    struct NotRequested { ///< no `--cli` among the arguments
        bool operator==(const NotRequested&) const = default;
    };
    using ParseResult = std::variant<Request, Usage, NotRequested>;

    /// Without a line break at its end.
    static const std::string_view usageText;

    static constexpr int succeeded = 0;
    static constexpr int stopped = 1;
    static constexpr int malformed = 64;
    static constexpr int noFolder = 66;

    /// Reads what follows the first "--cli". Unknown options are passed over with their value, so
    /// that what a launcher or a debugger adds does no harm. `home` stands for "~". Does not look
    /// at the disk.
    [[nodiscard]] static ParseResult parse(std::span<const std::string> arguments,
                                           std::string_view home);

    /// Where a run writes and keeps things.
    struct Surroundings {
        /// Receives each line of the output, line break included.
        std::function<void(std::string_view)> write;
        /// Names of files are shown with visible escapes, because a terminal reads them.
        bool escapesNames = false;
        /// Where `snapshot` keeps its result; absent: the archive's own place.
        std::optional<FileURL> snapshotDirectory = std::nullopt;
    };

    /// Performs one request and returns the exit status.
    [[nodiscard]] static int run(const Request& request, const Surroundings& surroundings);

    /// With the process's whole argument list, program path first. Returns only when command-line
    /// mode was not asked for; otherwise it ends the process.
    static void runIfRequested(std::span<const std::string> arguments);
};

constexpr RawValueTable<CommandLineMode::Command, 4>
rawValues(RawValueTag<CommandLineMode::Command>) {
    using enum CommandLineMode::Command;
    return {
        {{{scan, "scan"}, {duplicates, "duplicates"}, {index, "index"}, {snapshot, "snapshot"}}}};
}

} // namespace tidyro
