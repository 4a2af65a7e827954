#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "Base/LocaleText.h"
#include "Base/UnicodeText.h"

// What every command line of the executable shares: the outcome of reading its arguments, its lines
// of output, and how it ends.
//
//     const CommandLineParse<Request> parsed = parse(arguments); // with an ArgumentReader
//     runAndExit(parsed, [](const Request& request, const TextOutput& output) {
//         if (!output.confirmFolder(request.folder)) return ExitStatus::noFolder;
//         output.line("{} is a folder.", output.shown(request.folder));
//         return ExitStatus::succeeded;
//     });

namespace tidyro {

/// What the process ends with, for scripts to test. The two large numbers are those that
/// <sysexits.h> gives to a wrong use of a command and to a missing input.
struct ExitStatus {
    static constexpr int succeeded = 0;
    static constexpr int stopped = 1;    ///< by an error, which the last line tells
    static constexpr int malformed = 64; ///< the arguments; standard error shows the usage text
    static constexpr int noFolder = 66;  ///< no folder is at the path that was given
};

/// The arguments ask for a command line, but are malformed.
struct CommandLineUsage {
    std::string_view text; ///< a constant, without a line break at its end
    bool operator==(const CommandLineUsage&) const = default;
};
/// The arguments do not ask for this command line.
struct CommandLineNotRequested {
    bool operator==(const CommandLineNotRequested&) const = default;
};
template <class Request>
using CommandLineParse = std::variant<Request, CommandLineUsage, CommandLineNotRequested>;

/// Writes the results of a command line for people, a line at a time. Used by one thread.
struct TextOutput {
    std::function<void(std::string_view)> write; ///< receives each line, line break included
    /// A terminal obeys control characters, so `shown` replaces those in names by visible escapes.
    bool isTerminal = false;

    template <class... Values>
    void line(fmt::format_string<Values...> format, Values&&... values) const {
        std::string text = fmt::format(format, std::forward<Values>(values)...);
        text += '\n';
        write(text);
    }
    /// A path or another text that was not written by us, as it may be shown.
    [[nodiscard]] std::string shown(std::string text) const {
        return isTerminal ? terminalSafe(text) : std::move(text);
    }
    /// With so many digits behind the separator of the person's locale.
    [[nodiscard]] static std::string decimal(double value, int digits) {
        return LocaleText::current().decimal(value, digits);
    }

    /// Whether a folder, or a link to one, is at the path. When there is none, a line says so, with
    /// the reason when the system does not let us look.
    [[nodiscard]] bool confirmFolder(const std::string& path) const;
    /// Writes why the work ended early. Returns the exit status for that.
    [[nodiscard]] int tellStop(std::string reason) const;
};

/// Writes the text and a line break to standard error and ends the process as malformed.
[[noreturn]] void exitMalformed(std::string_view usage);

/// Runs the work with standard output as its output, and ends the process with the status that it
/// returns. A reader of the output that has ended is no failure; any other failure to write is.
[[noreturn]] void exitAfter(const std::function<int(const TextOutput&)>& work);

/// Ends the process as the parsed arguments ask. Returns only when nothing was requested. No other
/// thread may run by the time `run` returns.
template <class Request, class Run>
void runAndExit(const CommandLineParse<Request>& parsed, Run run) {
    if (const auto* usage = std::get_if<CommandLineUsage>(&parsed)) exitMalformed(usage->text);
    if (const auto* request = std::get_if<Request>(&parsed)) {
        exitAfter([&](const TextOutput& output) { return run(*request, output); });
    }
}

} // namespace tidyro
