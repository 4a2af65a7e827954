#include "Terminal/CommandLine.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Platform/Terminal/OutputLines.h"
#include "Platform/Terminal/StandardStreams.h"

namespace tidyro {

bool TextOutput::confirmFolder(const std::string& path) const {
    std::error_code failed;
    if (std::filesystem::is_directory(path, failed)) return true;
    line("No folder at {}.", shown(path));
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
