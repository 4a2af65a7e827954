#include "Terminal/CommandLine.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Base/PathText.h"
#include "Base/SystemError.h"
#include "Base/UnicodeText.h"
#include "Platform/Terminal/OutputLines.h"
#include "Platform/Terminal/StandardStreams.h"

namespace tidyro {

bool TextOutput::confirmFolder(const std::string& path) const {
    std::error_code failed;
    if (std::filesystem::is_directory(path, failed)) return true;
    if (path::isInsideOrEqual(path, path::unknownWorkingFolder)) {
        const std::string_view below = path::below(path, path::unknownWorkingFolder);
        line("No folder at {} (the working folder is gone).",
             below.empty() ? "." : shown(std::string(below)));
        return false;
    }
    const bool isMissing = failed.value() == 0 || failed == std::errc::no_such_file_or_directory ||
                           failed == std::errc::not_a_directory;
    if (isMissing) {
        line("No folder at {}.", shown(path));
    } else {
        // A folder may well be there, but the system does not let us see it.
        std::string reason = SystemError{failed.value()}.description();
        reason = lowercased(reason.substr(0, 1)) +
                 reason.substr(std::min<std::size_t>(1, reason.size()));
        line("No folder at {} ({}).", shown(path), reason);
    }
    return false;
}

int TextOutput::tellStop(std::string reason) const {
    line("Stopped: {}", shown(std::move(reason)));
    return ExitStatus::stopped;
}

void exitMalformed(std::string_view usage) {
    platform::reportWriteFailuresAsErrors();
    static_cast<void>(platform::writeAll(platform::Stream::error, fmt::format("{}\n", usage)));
    std::exit(ExitStatus::malformed); // NOLINT(concurrency-mt-unsafe)
}

void exitAfter(const std::function<int(const TextOutput&)>& work) {
    platform::OutputLines lines;
    const int status = work({.write = [&](std::string_view text) { lines.write(text); },
                             .isTerminal = platform::isTerminal(platform::Stream::output)});
    std::exit(lines.ending(status)); // NOLINT(concurrency-mt-unsafe)
}

} // namespace tidyro
