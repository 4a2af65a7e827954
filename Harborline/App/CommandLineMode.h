#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Terminal/ArgumentReader.h"
#include "Terminal/CommandLine.h"

namespace tidyro {

/// The same executable from a terminal: `Tidyro --cli <command> <folder> [options]`.
///
/// It reads, times and reports what the application would show, and never moves or deletes
/// anything. Results go to standard output, the usage text to standard error.
///
///     const int status = CommandLineMode::run(
///         {.command = CommandLineMode::Command::scan, .path = folder},
///         {.write = [&](std::string_view line) { show(line); }});
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

    using ParseResult = CommandLineParse<Request>;

    /// Without a line break at its end.
    static const std::string_view usageText;

    /// Reads what follows the first "--cli". Unknown options are passed over with their value, so
    /// that what a launcher or a debugger adds does no harm. `home` stands for "~". Does not look
    /// at the disk.
    [[nodiscard]] static ParseResult parse(ArgumentReader::Arguments arguments,
                                           std::string_view home);

    /// Performs one request and returns the exit status. `snapshot` keeps its result in the
    /// folder that is handed in; without one, in the archive's own.
    [[nodiscard]] static int run(const Request& request, const TextOutput& output,
                                 const std::optional<FileURL>& snapshotDirectory = std::nullopt);

    /// With the process's whole argument list, program path first. Returns only when command-line
    /// mode was not asked for; otherwise it ends the process.
    static void runIfRequested(ArgumentReader::Arguments arguments);
};

constexpr RawValueTable<CommandLineMode::Command, 4>
rawValues(RawValueTag<CommandLineMode::Command>) {
    using enum CommandLineMode::Command;
    return {
        {{{scan, "scan"}, {duplicates, "duplicates"}, {index, "index"}, {snapshot, "snapshot"}}}};
}

} // namespace tidyro
